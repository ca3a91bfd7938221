#pragma once
// Global shortcuts through the XDG desktop portal's GlobalShortcuts interface:
// register the app id, create a session, bind Parlova's shortcuts (again at
// every start, as some desktops need), then Activated is a press and
// Deactivated a release. Every call is asynchronous: the main thread never
// waits on the bus.
#include "shortcuts/ShortcutActions.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QHash>
#include <QObject>
#include <QVariantMap>

namespace parlova {

class PortalShortcuts : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kAppId = PARLOVA_APP_ID;

    explicit PortalShortcuts(const QDBusConnection& bus, QObject* parent = nullptr);

    // Starts the handshake; ends in bound() or unavailable().
    void start();
    // The keys the desktop assigned to a shortcut ("" when none).
    QString trigger(const QString& id) const { return triggers_.value(id); }

signals:
    void bound();
    // No portal, no GlobalShortcuts interface, or the user or desktop refused.
    void unavailable(const QString& why);
    void activated(const QString& id);
    void deactivated(const QString& id);

private slots:
    void sessionCreated(uint response, const QVariantMap& results);
    void shortcutsBound(uint response, const QVariantMap& results);
    void onActivated(const QDBusObjectPath& session, const QString& id, qulonglong timestamp, const QVariantMap& options);
    void onDeactivated(const QDBusObjectPath& session, const QString& id, qulonglong timestamp,
                       const QVariantMap& options);

private:
    void createSession();
    void bindShortcuts();
    QString requestPath(const QString& token) const;
    bool listenForResponse(const QString& path, const char* slot);

    QDBusConnection bus_;
    QString session_;
    QHash<QString, QString> triggers_;
    int tokens_ = 0;
};

}  // namespace parlova
