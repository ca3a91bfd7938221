#include "devices/pulse/Realtime.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusVariant>

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>

namespace parlova::pulse {
namespace {

// Below the sound server's own threads, so its mixing always comes first.
constexpr int kPriority = 4;

QVariant rtkitProperty(const char* name) {
    QDBusInterface props(QStringLiteral("org.freedesktop.RealtimeKit1"), QStringLiteral("/org/freedesktop/RealtimeKit1"),
                         QStringLiteral("org.freedesktop.DBus.Properties"), QDBusConnection::systemBus());
    QDBusReply<QDBusVariant> reply =
        props.call(QStringLiteral("Get"), QStringLiteral("org.freedesktop.RealtimeKit1"), QString::fromLatin1(name));
    return reply.isValid() ? reply.value().variant() : QVariant();
}

bool viaRtkit(pid_t threadId) {
    if (!QDBusConnection::systemBus().isConnected()) return false;
    const QVariant maxPriority = rtkitProperty("MaxRealtimePriority");
    const QVariant maxRtTime = rtkitProperty("RTTimeUSecMax");
    if (!maxPriority.isValid() || !maxRtTime.isValid()) return false;
    // rtkit only serves processes that cap their real-time CPU time, so a
    // runaway thread is stopped instead of freezing the desktop.
    const auto limit = static_cast<rlim_t>(maxRtTime.toLongLong());
    rlimit current{};
    if (getrlimit(RLIMIT_RTTIME, &current) == 0 && (current.rlim_max == RLIM_INFINITY || current.rlim_max > limit)) {
        rlimit capped{limit, limit};
        if (setrlimit(RLIMIT_RTTIME, &capped) != 0) return false;
    }
    QDBusInterface rtkit(QStringLiteral("org.freedesktop.RealtimeKit1"), QStringLiteral("/org/freedesktop/RealtimeKit1"),
                         QStringLiteral("org.freedesktop.RealtimeKit1"), QDBusConnection::systemBus());
    const quint32 priority = static_cast<quint32>(std::min(kPriority, std::max(1, maxPriority.toInt())));
    QDBusMessage reply =
        rtkit.call(QStringLiteral("MakeThreadRealtime"), static_cast<quint64>(threadId), priority);
    return reply.type() == QDBusMessage::ReplyMessage;
}

bool viaScheduler(pid_t threadId) {
    sched_param param{};
    param.sched_priority = kPriority;
    return sched_setscheduler(threadId, SCHED_FIFO | SCHED_RESET_ON_FORK, &param) == 0;
}

}  // namespace

RealtimeGrant makeRealtime(pid_t threadId) {
    if (threadId <= 0) return RealtimeGrant::none;
    if (qEnvironmentVariableIsSet("PARLOVA_NO_REALTIME")) return RealtimeGrant::none;
    if (viaRtkit(threadId)) return RealtimeGrant::rtkit;
    if (viaScheduler(threadId)) return RealtimeGrant::scheduler;
    return RealtimeGrant::none;
}

}  // namespace parlova::pulse
