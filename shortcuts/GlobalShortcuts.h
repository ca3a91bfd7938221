#pragma once
// Global shortcuts: the first mechanism that works on this desktop. The XDG
// desktop portal first (KDE, GNOME 48+, Hyprland and others); on X11 without
// it, raw key events; otherwise none, and the hint tells the user to bind keys
// to "parlova-cli control" commands, which always work. The window and the
// command line show hint() as it is.
//
// Main thread only.
#include "shortcuts/ShortcutActions.h"

#include <QObject>
#include <QString>

#include <QStringList>

#include <functional>
#include <memory>

namespace parlova {

class PortalShortcuts;
class TalkControl;
class X11Shortcuts;

class GlobalShortcuts : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString mechanism READ mechanismName NOTIFY changed)
    Q_PROPERTY(QString hint READ hint NOTIFY changed)

public:
    enum class Mechanism { starting, portal, x11, none };

    explicit GlobalShortcuts(QObject* parent = nullptr);
    ~GlobalShortcuts() override;

    // Looks for a mechanism (asynchronously). `busAddress` names a bus to ask
    // for the portal instead of the session bus.
    void start(const QString& busAddress = {});

    Mechanism mechanism() const { return mechanism_; }
    // "starting", "portal", "x11" or "none".
    QString mechanismName() const;
    // A sentence on what is active and what the user may need to do.
    QString hint() const;
    // The key the user holds for an action ("" when unknown).
    QString keyLabel(ShortcutAction action) const;

    // Runs a control command given as its words ("bypass toggle").
    using CommandRunner = std::function<void(const QStringList& words)>;
    // Lets the shortcuts act: push to talk and push to mute hold the talk key
    // (in their own mode), the others run the matching control command.
    void drive(CommandRunner run, TalkControl& talk);

signals:
    void changed();
    void activated(parlova::ShortcutAction action);
    void deactivated(parlova::ShortcutAction action);

private:
    void use(Mechanism mechanism, const QString& why = {});
    void tryX11(const QString& portalWhy);
    void forward(const QString& id, bool press);

    Mechanism mechanism_ = Mechanism::starting;
    QString why_;
    std::unique_ptr<PortalShortcuts> portal_;
    std::unique_ptr<X11Shortcuts> x11_;
};

}  // namespace parlova
