#pragma once
// Real speech for the engine tests: short 16 kHz mono recordings from Debian's
// pocketsphinx-testdata package. Tests skip when the package is missing.
#include <filesystem>
#include <string>

namespace parlova::testaudio {

// The path of a recording under the package's data folder, "" when absent.
inline std::string speechRecording(const std::string& name = "cards/002.wav") {
    const std::string path = "/usr/share/pocketsphinx/test/data/" + name;
    return std::filesystem::exists(path) ? path : std::string();
}

}  // namespace parlova::testaudio
