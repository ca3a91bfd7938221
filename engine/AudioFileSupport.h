#pragma once
// Helpers shared by the audio file reader and writer (engine-private).
#include <filesystem>
#include <string>

namespace parlova::audiofile {

// A name in the typographic quotes our messages use: “clip.wav”.
inline std::string inQuotes(const std::string& name) { return "\u201C" + name + "\u201D"; }

// The last component of a path (the file or folder name), never a full path.
inline std::string displayName(const std::filesystem::path& path) {
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
