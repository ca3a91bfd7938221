#pragma once
// Helpers shared by the audio file reader and writer (engine-private).
#include <atomic>
#include <filesystem>
#include <string>

namespace parlova::audiofile {

// A name in the typographic quotes our messages use: “clip.wav”.
inline std::string inQuotes(const std::string& name) { return "\u201C" + name + "\u201D"; }

// Whether messages name files by the whole path as given instead of the last
// component: the window shows only names, a command line the paths the user
// typed. Set once at start, before any file is opened.
inline std::atomic<bool> wholePathsInMessages{false};

// The last component of a path (the file or folder name), or the whole path
// when wholePathsInMessages is set.
inline std::string displayName(const std::filesystem::path& path) {
    if (wholePathsInMessages.load(std::memory_order_relaxed) && !path.empty()) return path.string();
    std::filesystem::path p = path;
    if (!p.has_filename() && p.has_parent_path()) p = p.parent_path();  // "dir/" -> "dir"
    std::string name = p.filename().string();
    return name.empty() ? path.string() : name;
}

// Quiets FFmpeg's own logging once per process: damaged input makes the
// decoders print warnings that mean nothing to our users; the errors we
// report carry what matters.
void quietFFmpegLogging();

// A lower-case text for an errno value without a trailing period.
std::string errnoText(int err);

}  // namespace parlova::audiofile
