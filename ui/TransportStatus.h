#pragma once
// The transport card's one status sentence, computed from the engine's
// published flags: the first rule that holds gives the text.
#include <QString>

namespace parlova::ui {

struct TransportState {
    QString voiceName;
    bool isExporting = false;
    bool isConverting = false;
    bool isRecording = false;
    bool isLive = false;
    bool callMode = false;
    bool bypass = false;
    bool isCloned = false;          // the engine speaks in a cloned voice
    bool isStreamStarting = false;  // the cloned voice's live stream is loading
    QString cloneDelayLabel;        // "~0.4 s"
    bool isPlaying = false;
    bool hasClip = false;
    double clipDuration = 0;
};

QString transportStatus(const TransportState& state);

}  // namespace parlova::ui
