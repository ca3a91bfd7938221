#include "devices/pulse/PulseEvents.h"

#include "devices/BackendJobs.h"
#include "devices/pulse/PulseControl.h"

#include <QCoreApplication>
#include <QThread>

namespace parlova::pulse {

PulseEvents& PulseEvents::instance() {
    // Never destroyed: queued calls from the loop thread may still target it.
    static PulseEvents* events = new PulseEvents;
    return *events;
}

PulseEvents::PulseEvents() {
    if (auto* app = QCoreApplication::instance(); app && thread() != app->thread()) moveToThread(app->thread());
    coalesce_.setSingleShot(true);
    coalesce_.setInterval(kCoalesceMs);
    connect(&coalesce_, &QTimer::timeout, this, &PulseEvents::flush);
    reconnect_.setInterval(kReconnectMs);
    connect(&reconnect_, &QTimer::timeout, this, &PulseEvents::tryReconnect);

    auto handler = [this](Facility facility, Change change, uint32_t index) {
        QMetaObject::invokeMethod(
            this, [this, facility, change, index] { handle(static_cast<int>(facility), static_cast<int>(change), index); },
            Qt::QueuedConnection);
    };
    auto onLost = [this] { QMetaObject::invokeMethod(this, [this] { lost(); }, Qt::QueuedConnection); };
    connecting_ = true;
    BackendJobs::shared().request(
        this,
        [handler, onLost] {
            PulseControl::shared().subscribe(handler, onLost);
            return PulseControl::shared().connect();
        },
        [this](bool ok) { connected(ok); });
}

void PulseEvents::connected(bool ok) {
    connecting_ = false;
    const bool wasConnected = connected_;
    connected_ = ok;
    if (!ok) {
        reconnect_.start();
        return;
    }
    reconnect_.stop();
    if (wasConnected) return;
    emit serverBack();
    emit devicesChanged();
    emit defaultsChanged();
}

void PulseEvents::handle(int facility, int change, uint32_t index) {
    const auto f = static_cast<Facility>(facility);
    const auto c = static_cast<Change>(change);
    if (f == Facility::server) {
        defaultsDirty_ = true;
    } else {
        devicesDirty_ = true;
        // A device that came or went can change which device is the default.
        if (c != Change::changed) defaultsDirty_ = true;
        if (c == Change::removed) {
            if (f == Facility::source) emit sourceRemoved(index);
            if (f == Facility::sink) emit sinkRemoved(index);
        }
    }
    if (!coalesce_.isActive()) coalesce_.start();
}

void PulseEvents::flush() {
    const bool devices = devicesDirty_;
    const bool defaults = defaultsDirty_;
    devicesDirty_ = defaultsDirty_ = false;
    if (devices) emit devicesChanged();
    if (defaults) emit defaultsChanged();
}

void PulseEvents::lost() {
    if (!connected_) return;
    connected_ = false;
    BackendJobs::shared().post([] { PulseControl::shared().disconnect(); });
    emit serverLost();
    emit devicesChanged();
    reconnect_.start();
}

void PulseEvents::tryReconnect() {
    if (connecting_) return;  // the previous try is still waiting for the server
    connecting_ = true;
    BackendJobs::shared().request(this, [] { return PulseControl::shared().connect(); },
                                  [this](bool ok) { connected(ok); });
}

}  // namespace parlova::pulse
