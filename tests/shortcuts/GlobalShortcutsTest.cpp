// Global shortcuts against a fake desktop portal on a private D-Bus bus (it
// answers the session handshake and sends Activated and Deactivated), and on
// X11 under Xvfb with xdotool pressing the key; without either, the hint
// points at the control commands.
#include "control/ControlRig.h"
#include "shortcuts/GlobalShortcuts.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QProcess>

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testpulse::waitUntil;

namespace {

struct Shortcut {
    QString id;
    QVariantMap properties;
};

}  // namespace

Q_DECLARE_METATYPE(Shortcut)

namespace {

QDBusArgument& operator<<(QDBusArgument& a, const Shortcut& s) {
    a.beginStructure();
    a << s.id << s.properties;
    a.endStructure();
    return a;
}
const QDBusArgument& operator>>(const QDBusArgument& a, Shortcut& s) {
    a.beginStructure();
    a >> s.id >> s.properties;
    a.endStructure();
    return a;
}

const QString kDesktop = QStringLiteral("/org/freedesktop/portal/desktop");

// A private bus for the test, gone with it.
struct PrivateBus {
    QProcess daemon;
    QString address;
    PrivateBus() {
        daemon.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
        if (daemon.waitForReadyRead(5000)) address = QString::fromUtf8(daemon.readLine()).trimmed();
    }
    ~PrivateBus() {
        daemon.kill();
        daemon.waitForFinished(2000);
    }
};

// The portal's GlobalShortcuts side, as far as Parlova uses it.
class FakePortal : public QDBusVirtualObject {
public:
    FakePortal(const QString& address, QString trigger)
        : bus(QDBusConnection::connectToBus(address, "fake-portal")), trigger_(std::move(trigger)) {
        bus.registerService("org.freedesktop.portal.Desktop");
        bus.registerVirtualObject(kDesktop, this);
    }
    ~FakePortal() override { QDBusConnection::disconnectFromBus("fake-portal"); }
    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const auto args = message.arguments();
        QDBusMessage reply = message.createReply();
        if (message.member() == "Get") {
            reply << QVariant::fromValue(QDBusVariant(1u));
        } else if (message.member() == "CreateSession" || message.member() == "BindShortcuts") {
            const bool create = message.member() == "CreateSession";
            const QVariantMap options = qdbus_cast<QVariantMap>(args.value(create ? 0 : 3));
            QString sender = message.service().mid(1).replace('.', '_');
            const QString request = kDesktop + "/request/" + sender + "/" + options.value("handle_token").toString();
            reply << QVariant::fromValue(QDBusObjectPath(request));
            QVariantMap results;
            if (create) {
                results.insert("session_handle", QVariant::fromValue(QDBusObjectPath(session)));
            } else {
                QList<Shortcut> asked, given;
                args.value(1).value<QDBusArgument>() >> asked;
                for (const auto& s : asked) {
                    requested.insert(s.id, s.properties.value("preferred_trigger").toString());
                    given.push_back({s.id, {{"trigger_description", s.id == "push-to-talk" ? trigger_ : QString()}}});
                }
                results.insert("shortcuts", QVariant::fromValue(given));
            }
            connection.send(reply);
            auto response = QDBusMessage::createSignal(request, "org.freedesktop.portal.Request", "Response");
            response << 0u << results;
            connection.send(response);
            return true;
        }
        connection.send(reply);
        return true;
    }

    void emitKey(const char* id, bool press) {
        auto signal = QDBusMessage::createSignal(kDesktop, "org.freedesktop.portal.GlobalShortcuts",
                                                 press ? "Activated" : "Deactivated");
        signal << QVariant::fromValue(QDBusObjectPath(session)) << QString(id) << qulonglong(0) << QVariantMap();
        bus.send(signal);
    }

    QDBusConnection bus;
    const QString session = kDesktop + "/session/test/parlova";
    QHash<QString, QString> requested;

private:
    QString trigger_;
};

struct Driven : testcontrol::ControlRig {
    GlobalShortcuts shortcuts;
    Driven() {
        engine.talk().setMode(TalkMode::pushToTalk, false);
        shortcuts.drive([this](const QStringList& words) { commands.run(words); }, engine.talk());
    }
};

bool heldAfter(Driven& d, const std::function<void()>& act, bool held) {
    act();
    return waitUntil([&] { return d.engine.talk().isTalking() == held; }, 3000);
}

}  // namespace

TEST(GlobalShortcuts, ThePortalBindsTheShortcutsAndItsKeyHoldsPushToTalk) {
    qDBusRegisterMetaType<Shortcut>();
    qDBusRegisterMetaType<QList<Shortcut>>();
    PrivateBus bus;
    if (bus.address.isEmpty()) GTEST_SKIP() << "dbus-daemon could not be started.";
    for (const QString trigger : {"Pause", ""}) {
        FakePortal portal(bus.address, trigger);
        Driven d;
        d.shortcuts.start(bus.address);
        ASSERT_TRUE(waitUntil([&] { return d.shortcuts.mechanism() != GlobalShortcuts::Mechanism::starting; }, 5000));
        EXPECT_EQ(d.shortcuts.mechanismName(), "portal");
        EXPECT_EQ(portal.requested.value("push-to-talk"), "Pause");
        EXPECT_EQ(portal.requested.size(), static_cast<qsizetype>(kShortcuts.size()));
        // The board's sounds are offered without keys of their own.
        EXPECT_TRUE(portal.requested.contains("board-sound-9"));
        EXPECT_EQ(portal.requested.value("board-sound-1"), "");
        if (trigger.isEmpty()) {
            EXPECT_TRUE(d.shortcuts.hint().contains("assigned no keys")) << d.shortcuts.hint().toStdString();
            continue;
        }
        EXPECT_TRUE(d.shortcuts.hint().contains("hold Pause")) << d.shortcuts.hint().toStdString();
        EXPECT_EQ(d.engine.talk().status(), "Push to talk: hold Pause");
        EXPECT_TRUE(heldAfter(d, [&] { portal.emitKey("push-to-talk", true); }, true));
        EXPECT_TRUE(heldAfter(d, [&] { portal.emitKey("push-to-talk", false); }, false));
        const QUuid before = d.engine.voice().id;
        portal.emitKey("next-voice", true);
        EXPECT_TRUE(waitUntil([&] { return d.engine.voice().id != before; }, 3000));
    }
}

TEST(GlobalShortcuts, OnX11RawKeyEventsHoldPushToTalkAndWithoutAnyTheHintNamesTheCommands) {
    PrivateBus bus;
    if (bus.address.isEmpty()) GTEST_SKIP() << "dbus-daemon could not be started.";
    const QByteArray display = qgetenv("DISPLAY"), wayland = qgetenv("WAYLAND_DISPLAY");
    qunsetenv("WAYLAND_DISPLAY");
    qunsetenv("DISPLAY");
    {
        Driven none;
        none.shortcuts.start(bus.address);
        ASSERT_TRUE(waitUntil([&] { return none.shortcuts.mechanism() != GlobalShortcuts::Mechanism::starting; }, 5000));
        EXPECT_EQ(none.shortcuts.mechanismName(), "none");
        EXPECT_TRUE(none.shortcuts.hint().contains("parlova-cli control ptt press"));
    }
    if (testaudio::haveTool("Xvfb") && testaudio::haveTool("xdotool")) {
        QProcess xvfb;
        xvfb.start("Xvfb", {":87", "-nolisten", "tcp"});
        qputenv("DISPLAY", ":87");
        const auto xdotool = [](const char* action) { testaudio::runQuiet(std::string("xdotool ") + action + " Pause"); };
        auto owned = std::make_unique<Driven>();
        Driven& d = *owned;
        ASSERT_TRUE(waitUntil([] { return testaudio::runQuiet("xdotool getmouselocation") == 0; }, 5000));
        d.shortcuts.start(bus.address);
        ASSERT_TRUE(waitUntil([&] { return d.shortcuts.mechanism() != GlobalShortcuts::Mechanism::starting; }, 5000));
        EXPECT_EQ(d.shortcuts.mechanismName(), "x11") << d.shortcuts.hint().toStdString();
        if (d.shortcuts.mechanism() == GlobalShortcuts::Mechanism::x11) {
            EXPECT_TRUE(heldAfter(d, [&] { xdotool("keydown"); }, true));
            EXPECT_TRUE(heldAfter(d, [&] { xdotool("keyup"); }, false));
        }
        owned.reset();  // closes the X connection before the server goes
        xvfb.terminate();
        xvfb.waitForFinished(3000);
    }
    if (!display.isEmpty()) qputenv("DISPLAY", display); else qunsetenv("DISPLAY");
    if (!wayland.isEmpty()) qputenv("WAYLAND_DISPLAY", wayland);
}
