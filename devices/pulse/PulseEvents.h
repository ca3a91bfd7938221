#pragma once
// Sound-server events on the main thread. The control connection's loop thread
// hands every sink, source and server event over with a queued call; bursts of
// changes are coalesced by a short timer into one devicesChanged() or
// defaultsChanged(), while removals are passed on at once so that a device in
// use can be given up without delay.
#include <QObject>
#include <QTimer>

#include <cstdint>

namespace parlova::pulse {

class PulseEvents : public QObject {
    Q_OBJECT
public:
    // The process's one instance, living on the application's main thread.
    // Needs a QCoreApplication; the first call subscribes to the server.
    static PulseEvents& instance();

    static constexpr int kCoalesceMs = 50;
    static constexpr int kReconnectMs = 1000;

    bool isConnected() const { return connected_; }

signals:
    void devicesChanged();                // sinks or sources came, went or changed
    void defaultsChanged();               // the default sink or source changed
    void sourceRemoved(uint32_t index);   // a source is gone
    void sinkRemoved(uint32_t index);     // a sink is gone
    void serverLost();                    // the connection to the server broke
    void serverBack();                    // the server can be reached again

private:
    PulseEvents();
    void handle(int facility, int change, uint32_t index);
    void lost();
    void tryReconnect();
    void flush();

    QTimer coalesce_;
    QTimer reconnect_;
    bool devicesDirty_ = false;
    bool defaultsDirty_ = false;
    bool connected_ = false;
};

}  // namespace parlova::pulse
