#pragma once
// The rules for recording a sample on the cloned-voice page: how long, when
// it stops by itself, what is too short, and the words shown meanwhile.
#include <QString>

#include <optional>

namespace parlova {

struct SampleRecording {
    static constexpr double kAutoStopSeconds = 25.0;
    // Below this a recording holds too little speech to be used at all.
    static constexpr double kMinimumSeconds = 2.0;
    // From here on the sample is long enough to help.
    static constexpr double kGoodSeconds = 10.0;
    // The elapsed time at which the progress word turns to "great".
    static constexpr double kEnoughSeconds = 12.0;
    // Sentences per proposed script (about 15 s of reading).
    static constexpr int kScriptSentences = 3;

    static QString hint() { return QStringLiteral("Aim for 12–20 s; it stops by itself at 25 s."); }
    static QString liveIsOn() { return QStringLiteral("Stop Live to record a sample."); }
    static QString tooShortMessage() {
        return QStringLiteral(
            "That recording was too short to use. Press Record Sample, read the sentences, then press Stop.");
    }
    static QString shortSampleMark() {
        return QStringLiteral("Too short to help much: samples of 10 s or more work best. Consider deleting it.");
    }
    static QString addFailed(const QString& error) { return "Couldn't add that sample: " + error; }

    // The word shown beside the elapsed time while recording.
    static QString progressWord(double elapsed) {
        return elapsed < kEnoughSeconds ? QStringLiteral("good, a bit more…") : QStringLiteral("great, stop whenever you like");
    }
    static bool shouldAutoStop(double elapsed) { return elapsed >= kAutoStopSeconds; }
    // The message that refuses a finished recording, none when it can be added.
    static std::optional<QString> rejection(double seconds) {
        if (seconds < kMinimumSeconds) return tooShortMessage();
        return std::nullopt;
    }
    // Whether a kept sample carries the "too short to help much" mark.
    static bool isShort(double seconds) { return seconds < kGoodSeconds; }
};

}  // namespace parlova
