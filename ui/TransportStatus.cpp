#include "ui/TransportStatus.h"

namespace parlova::ui {

QString transportStatus(const TransportState& s) {
    const QString& name = s.voiceName;
    // Exporting and converting outrank recording; call mode outranks the
    // cloned-voice live texts, so a call in a cloned voice reads as call mode.
    if (s.isExporting) return s.isCloned ? "Converting and exporting…" : "Exporting…";
    if (s.isConverting) return "Re-speaking the clip in " + name + "'s voice…";
    if (s.isRecording) return "Recording your normal voice — play it back to hear it in any voice.";
    if (s.isLive && s.callMode)
        return s.bypass ? "In call mode with your natural voice. Turn off Natural voice to change it again."
                        : "In call mode: apps using the system mic now hear " + name + ".";
    if (s.isLive && s.isCloned)
        return s.isStreamStarting ? "Loading " + name + "'s voice…"
                                  : "Live as " + name + ": your speech comes out in their voice " +
                                        s.cloneDelayLabel + " behind you.";
    if (s.isLive) return "Live — use headphones to avoid feedback. Tweak the sliders while you talk.";
    if (s.isPlaying) return "Playing clip as " + name + ".";
    if (s.hasClip)
        return QString::asprintf("Clip ready (%.1f s). Switch voices and press Play to compare.", s.clipDuration);
    if (!s.isCloned) return "Talk Live to hear yourself transformed, or Record a clip and play it back in any voice.";
    return "Talk Live to speak as " + name + ", or Record a clip and Play in Voice to convert it.";
}

}  // namespace parlova::ui
