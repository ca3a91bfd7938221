#include "ui/Summaries.h"

namespace parlova::ui {

QString voiceSummary(const Voice& voice) {
    if (voice.targetPitch > 0) return QString::asprintf("Auto pitch → %.0f Hz", double(voice.targetPitch));
    double semitones = voice.pitch / 100.0 + 0.0;  // -0 prints as +0.0
    // A negative number carries its own sign; zero reads "+0.0".
    return QString::asprintf("%s%.1f semitones", semitones >= 0 ? "+" : "", semitones);
}

QString sampleLine(int sampleCount, double totalSeconds) {
    if (sampleCount <= 0) return "No samples yet";
    return QString::asprintf("%d sample%s · %.0f s", sampleCount, sampleCount == 1 ? "" : "s", totalSeconds);
}

}  // namespace parlova::ui
