#include "shortcuts/PortalShortcuts.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace parlova {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");

// One entry of the portal's a(sa{sv}) shortcut lists.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

}  // namespace
}  // namespace parlova

Q_DECLARE_METATYPE(parlova::PortalShortcut)

namespace parlova {
namespace {

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

void registerTypes() {
    static const bool once = [] {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<QList<PortalShortcut>>();
        return true;
    }();
    (void)once;
}

}  // namespace

PortalShortcuts::PortalShortcuts(const QDBusConnection& bus, QObject* parent) : QObject(parent), bus_(bus) {
    registerTypes();
}

QString PortalShortcuts::requestPath(const QString& token) const {
    // The portal's documented request path: the caller's unique name without
    // the leading ':' and with '.' as '_', then the token.
    QString sender = bus_.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return kPath + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
}

bool PortalShortcuts::listenForResponse(const QString& path, const char* slot) {
    return bus_.connect(kService, path, kRequest, QStringLiteral("Response"), this, slot);
}

void PortalShortcuts::start() {
    if (!bus_.isConnected()) {
        emit unavailable(QStringLiteral("There is no session bus."));
        return;
    }
    // Registering the app id lets a desktop name Parlova in its shortcut
    // settings; portals without the registry simply refuse it.
    auto registry = QDBusMessage::createMethodCall(kService, kPath, QStringLiteral("org.freedesktop.host.portal.Registry"),
                                                   QStringLiteral("Register"));
    registry << QString::fromLatin1(kAppId) << QVariantMap();
    bus_.asyncCall(registry);

    auto version = QDBusMessage::createMethodCall(kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                  QStringLiteral("Get"));
    version << kInterface << QStringLiteral("version");
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(version), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        call->deleteLater();
        if (call->isError()) {
            emit unavailable(QStringLiteral("The desktop portal offers no global shortcuts."));
            return;
        }
        createSession();
    });
}

void PortalShortcuts::createSession() {
    const QString token = QStringLiteral("parlova%1").arg(++tokens_);
    listenForResponse(requestPath(token), SLOT(sessionCreated(uint, QVariantMap)));
    auto call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("CreateSession"));
    call << QVariantMap{{QStringLiteral("handle_token"), token},
                        {QStringLiteral("session_handle_token"), QStringLiteral("parlova")}};
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, token](QDBusPendingCallWatcher* pending) {
        pending->deleteLater();
        QDBusPendingReply<QDBusObjectPath> reply = *pending;
        if (reply.isError()) {
            emit unavailable(QStringLiteral("The desktop portal refused a shortcut session."));
            return;
        }
        // An older portal may answer on a path of its own choosing.
        if (reply.value().path() != requestPath(token))
            listenForResponse(reply.value().path(), SLOT(sessionCreated(uint, QVariantMap)));
    });
}

void PortalShortcuts::sessionCreated(uint response, const QVariantMap& results) {
    if (!session_.isEmpty()) return;
    if (response != 0) {
        emit unavailable(QStringLiteral("The desktop portal refused a shortcut session."));
        return;
    }
    session_ = results.value(QStringLiteral("session_handle")).toString();
    if (session_.isEmpty()) session_ = results.value(QStringLiteral("session_handle")).value<QDBusObjectPath>().path();
    bus_.connect(kService, kPath, kInterface, QStringLiteral("Activated"), this,
                 SLOT(onActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    bus_.connect(kService, kPath, kInterface, QStringLiteral("Deactivated"), this,
                 SLOT(onDeactivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    bindShortcuts();
}

void PortalShortcuts::bindShortcuts() {
    QList<PortalShortcut> shortcuts;
    for (const auto& info : kShortcuts) {
        QVariantMap properties{{QStringLiteral("description"), QString::fromUtf8(info.description)}};
        if (*info.preferredTrigger)
            properties.insert(QStringLiteral("preferred_trigger"), QString::fromLatin1(info.preferredTrigger));
        shortcuts.push_back({QString::fromLatin1(info.id), properties});
    }
    const QString token = QStringLiteral("parlova%1").arg(++tokens_);
    listenForResponse(requestPath(token), SLOT(shortcutsBound(uint, QVariantMap)));
    auto call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("BindShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(session_)) << QVariant::fromValue(shortcuts) << QString()
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* pending) {
        pending->deleteLater();
        if (pending->isError()) emit unavailable(QStringLiteral("The desktop portal refused Parlova's shortcuts."));
    });
}

void PortalShortcuts::shortcutsBound(uint response, const QVariantMap& results) {
    if (response != 0) {
        emit unavailable(QStringLiteral("The shortcuts were not accepted on this desktop."));
        return;
    }
    QList<PortalShortcut> shortcuts;
    const QVariant list = results.value(QStringLiteral("shortcuts"));
    if (list.canConvert<QDBusArgument>()) list.value<QDBusArgument>() >> shortcuts;
    for (const auto& shortcut : shortcuts)
        triggers_.insert(shortcut.id, shortcut.properties.value(QStringLiteral("trigger_description")).toString());
    emit bound();
}

void PortalShortcuts::onActivated(const QDBusObjectPath& session, const QString& id, qulonglong, const QVariantMap&) {
    if (session.path() == session_) emit activated(id);
}

void PortalShortcuts::onDeactivated(const QDBusObjectPath& session, const QString& id, qulonglong,
                                    const QVariantMap&) {
    if (session.path() == session_) emit deactivated(id);
}

}  // namespace parlova
