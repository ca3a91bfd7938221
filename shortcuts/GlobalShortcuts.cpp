#include "shortcuts/GlobalShortcuts.h"

#include "engine/TalkControl.h"
#include "shortcuts/PortalShortcuts.h"
#include "shortcuts/X11Shortcuts.h"

#include <QDBusConnection>

namespace parlova {

namespace {

const ShortcutInfo& infoFor(ShortcutAction action) {
    for (const auto& info : kShortcuts)
        if (info.action == action) return info;
    return kShortcuts.front();
}

bool waylandSession() {
    return !qgetenv("WAYLAND_DISPLAY").isEmpty() || qgetenv("XDG_SESSION_TYPE") == "wayland";
}

}  // namespace

GlobalShortcuts::GlobalShortcuts(QObject* parent) : QObject(parent) {}
GlobalShortcuts::~GlobalShortcuts() = default;

void GlobalShortcuts::start(const QString& busAddress) {
    const QDBusConnection bus = busAddress.isEmpty()
                                    ? QDBusConnection::sessionBus()
                                    : QDBusConnection::connectToBus(busAddress, QStringLiteral("parlova-shortcuts"));
    portal_ = std::make_unique<PortalShortcuts>(bus);
    connect(portal_.get(), &PortalShortcuts::bound, this, [this] { use(Mechanism::portal); });
    connect(portal_.get(), &PortalShortcuts::unavailable, this, [this](const QString& why) {
        if (mechanism_ == Mechanism::starting) tryX11(why);
    });
    connect(portal_.get(), &PortalShortcuts::activated, this, [this](const QString& id) { forward(id, true); });
    connect(portal_.get(), &PortalShortcuts::deactivated, this, [this](const QString& id) { forward(id, false); });
    portal_->start();
}

void GlobalShortcuts::tryX11(const QString& portalWhy) {
    QString why = portalWhy;
    if (!waylandSession() && !qgetenv("DISPLAY").isEmpty()) {
        x11_ = std::make_unique<X11Shortcuts>();
        QString x11Why;
        if (x11_->open(&x11Why)) {
            connect(x11_.get(), &X11Shortcuts::activated, this, [this](const QString& id) { forward(id, true); });
            connect(x11_.get(), &X11Shortcuts::deactivated, this, [this](const QString& id) { forward(id, false); });
            use(Mechanism::x11);
            return;
        }
        x11_.reset();
        why += QLatin1Char(' ') + x11Why;
    }
    use(Mechanism::none, why);
}

void GlobalShortcuts::use(Mechanism mechanism, const QString& why) {
    mechanism_ = mechanism;
    why_ = why;
    emit changed();
}

void GlobalShortcuts::forward(const QString& id, bool press) {
    const ShortcutInfo* info = shortcutById(id);
    if (!info) return;
    if (press)
        emit activated(info->action);
    else
        emit deactivated(info->action);
}

QString GlobalShortcuts::mechanismName() const {
    switch (mechanism_) {
    case Mechanism::portal: return QStringLiteral("portal");
    case Mechanism::x11: return QStringLiteral("x11");
    case Mechanism::none: return QStringLiteral("none");
    case Mechanism::starting: break;
    }
    return QStringLiteral("starting");
}

QString GlobalShortcuts::keyLabel(ShortcutAction action) const {
    const ShortcutInfo& info = infoFor(action);
    if (mechanism_ == Mechanism::portal) return portal_->trigger(QString::fromLatin1(info.id));
    if (mechanism_ == Mechanism::x11) return X11Shortcuts::keyName(info);
    return {};
}

QString GlobalShortcuts::hint() const {
    const QString talkKey = keyLabel(ShortcutAction::pushToTalk);
    switch (mechanism_) {
    case Mechanism::starting: return QStringLiteral("Looking for global shortcuts\u2026");
    case Mechanism::portal:
        if (talkKey.isEmpty())
            return QStringLiteral("The desktop took Parlova's shortcuts but assigned no keys: assign them in your "
                                  "desktop's keyboard settings, where Parlova's shortcuts are listed.");
        return QStringLiteral("Global shortcuts come from the desktop portal (push to talk: hold %1); change them in "
                              "your desktop's keyboard settings.")
            .arg(talkKey);
    case Mechanism::x11:
        return QStringLiteral("Global shortcuts listen to X11 keys: hold %1 to talk; other apps still get the key.")
            .arg(talkKey);
    case Mechanism::none: break;
    }
    return QStringLiteral("This desktop offers Parlova no global shortcuts. Bind keys in its keyboard settings to "
                          "\u201cparlova-cli control ptt press\u201d (on press) and \u201cparlova-cli control ptt "
                          "release\u201d (on release).");
}

void GlobalShortcuts::drive(CommandRunner run, TalkControl& talk) {
    const auto hold = [&talk](ShortcutAction action, bool press) {
        const TalkMode mode = action == ShortcutAction::pushToTalk ? TalkMode::pushToTalk : TalkMode::pushToMute;
        if (talk.mode() == mode) talk.setKeyHeld(press);
    };
    connect(this, &GlobalShortcuts::changed, &talk, [this, &talk] {
        const QString key = keyLabel(ShortcutAction::pushToTalk);
        if (!key.isEmpty()) talk.setKeyLabel(key);
    });
    connect(this, &GlobalShortcuts::deactivated, &talk, [hold](ShortcutAction action) {
        if (action == ShortcutAction::pushToTalk || action == ShortcutAction::pushToMute) hold(action, false);
    });
    connect(this, &GlobalShortcuts::activated, &talk, [hold, run = std::move(run)](ShortcutAction action) {
        switch (action) {
        case ShortcutAction::pushToTalk:
        case ShortcutAction::pushToMute: hold(action, true); break;
        case ShortcutAction::toggleNatural: run({"bypass", "toggle"}); break;
        case ShortcutAction::nextVoice: run({"voice", "next"}); break;
        case ShortcutAction::previousVoice: run({"voice", "prev"}); break;
        case ShortcutAction::toggleLive: run({"live", "toggle"}); break;
        case ShortcutAction::boardSound1:
        case ShortcutAction::boardSound2:
        case ShortcutAction::boardSound3:
        case ShortcutAction::boardSound4:
        case ShortcutAction::boardSound5:
        case ShortcutAction::boardSound6:
        case ShortcutAction::boardSound7:
        case ShortcutAction::boardSound8:
        case ShortcutAction::boardSound9: run({"board", "key", QString::number(boardSlot(action))}); break;
        case ShortcutAction::stopBoard: run({"board", "stop"}); break;
        }
    });
}

}  // namespace parlova
