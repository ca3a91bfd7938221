#pragma once
// The system microphone during call mode: after a call-routed live start the
// virtual cable becomes the system's default input, and the real microphone
// is remembered under "micBeforeCallMode" (saved before the switch, so even a
// crash leaves a way back); at every tear-down the real microphone is put
// back. A microphone left on the cable by an earlier run is repaired only
// when no Parlova process owns live any more (see LiveOwner).
//
// While the cable is the system microphone, the default input is watched: if
// something else moves it (another program, the sound settings), that is
// published, never undone behind the user's back; takeBackSystemMic() does it
// on request. Server calls run on the job thread; the settings belong to the
// main thread.
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
    // Gives the real microphone back after this run's call. Left alone when
    // the system microphone is no longer the cable (the user chose another).
    void restoreSystemMic();
    // Repairs a system microphone an earlier run left on the cable: only when
    // no process owns live. Touches the server only when a microphone was saved.
    void repairSystemMic();

    // The input call apps hear instead of the cable, while this run switched
    // to the cable and something else moved the default input (display
    // name); empty otherwise.
    QString systemMicElsewhere() const { return elsewhere_; }
    // Makes the cable the system microphone again after it was moved away.
    void takeBackSystemMic();

signals:
    // The system microphone was switched to the cable or given back.
    void systemMicChanged();
    void systemMicElsewhereChanged();

private:
    void putBack(bool ownCall);
    void checkDefaultInput();
    void setElsewhere(const QString& name);

    QSettings& settings_;
    AudioBackend* backend_;
    BackendJobs& jobs_;
    bool switched_ = false;
    bool switchPending_ = false;
    bool checkPending_ = false;
    QString elsewhere_;
};

// The sentence for a call whose system microphone was moved away from the cable.
QString systemMicElsewhereSentence(const QString& deviceName);

}  // namespace parlova
