#pragma once
// The system microphone during call mode: after a call-routed live start the
// virtual cable becomes the system's default input, and the real microphone
// is remembered under "micBeforeCallMode" (saved before the switch, so even a
// crash leaves a way back); at every tear-down, and at start when an earlier
// run left the cable in place, the real microphone is put back. Server calls
// run on the job thread; the settings belong to the main thread.
#include "devices/AudioBackend.h"
#include "devices/BackendJobs.h"

#include <QObject>
#include <QSettings>

namespace parlova {

class CallMode : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kMicBeforeCallModeKey = "micBeforeCallMode";

    CallMode(QSettings& settings, AudioBackend* backend, BackendJobs& jobs, QObject* parent = nullptr);

    QString savedMic() const { return settings_.value(kMicBeforeCallModeKey).toString(); }
    bool switchedDefaultInput() const { return switched_; }

    // After a call-routed start, with the snapshot it started from.
    void useVirtualCableAsSystemMic(const DeviceTable& table);
    // Gives the real microphone back when this run, or an earlier one, left
    // the cable as the system microphone. Touches the server only then.
    void restoreSystemMic();

signals:
    void systemMicChanged();

private:
    QSettings& settings_;
    AudioBackend* backend_;
    BackendJobs& jobs_;
    bool switched_ = false;
    bool switchPending_ = false;
};

}  // namespace parlova
