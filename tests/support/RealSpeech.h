#pragma once
// Real recorded speech for the tests, from Debian packages: a low male
// talker (about 100 Hz, pocketsphinx-testdata) and a female talker (about
// 200 Hz, codec2-examples), both recorded at 16 kHz, resampled with sox to
// the rate asked for. No channels when the package or sox is missing.
#include "support/TestAudio.h"

#include <filesystem>
#include <string>

namespace parlova::testaudio {

// The path of a recording under pocketsphinx-testdata's data folder, "" when absent.
inline std::string speechRecording(const std::string& name = "cards/002.wav") {
    const std::string path = "/usr/share/pocketsphinx/test/data/" + name;
    return std::filesystem::exists(path) ? path : std::string();
}

enum class Talker { lowMale, female };

inline const char* talkerName(Talker talker) { return talker == Talker::lowMale ? "male ~100 Hz" : "female ~200 Hz"; }

inline Audio realSpeech(Talker talker, double sampleRate = 48000) {
    const std::string path = talker == Talker::lowMale ? speechRecording("cards/005.wav")
                                                       : std::string("/usr/share/codec2/raw/speech_orig_16k.wav");
    if (path.empty() || !std::filesystem::exists(path) || !haveTool("sox")) return {};
    TempFolder dir;
    const std::string resampled = dir.file("speech.wav");
    // The female recording runs for ten seconds; its first four are plenty.
    const std::string trim = talker == Talker::female ? " trim 0 4" : "";
    if (runQuiet("sox " + shellQuote(path) + " -c 1 -r " + std::to_string(std::lround(sampleRate)) + " " +
                 shellQuote(resampled) + trim) != 0)
        return {};
    return readAudioFile(resampled);
}

}  // namespace parlova::testaudio
