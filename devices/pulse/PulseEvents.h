#pragma once
// Sound-server events on the main thread. The control connection's loop thread
// hands every sink, source and server event over with a queued call; bursts of
// changes are coalesced by a short timer into one devicesChanged() or
// defaultsChanged(), while removals are passed on at once so that a device in
// use can be given up without delay. Connecting and reconnecting run on the
// backend's job thread: the main thread never waits for the server.
#include "devices/AudioBackend.h"

#include <QTimer>

#include <cstdint>

namespace parlova::pulse {

class PulseEvents : public BackendEvents {
    Q_OBJECT
public:
    // The process's one instance, living on the application's main thread.
    // Needs a QCoreApplication; the first call subscribes to the server.
    static PulseEvents& instance();

    static constexpr int kCoalesceMs = 50;
    static constexpr int kReconnectMs = 1000;

private:
    PulseEvents();
    void handle(int facility, int change, uint32_t index);
    void lost();
    void tryReconnect();
    void connected(bool ok);
    void flush();

    QTimer coalesce_;
    QTimer reconnect_;
    bool devicesDirty_ = false;
    bool defaultsDirty_ = false;
    bool connecting_ = false;
};

}  // namespace parlova::pulse
