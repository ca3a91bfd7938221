// parlova-cli devices and mic against the private sound server: what the tool
// prints and returns (the device list and the mic itself have their own tests).
#include "support/PulseServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

using parlova::testpulse::PrivateServer;

namespace {

struct Result {
    int code = -1;
    QString out, err;
};

Result cli(const QStringList& args) {
    QProcess p;
    p.start(PARLOVA_CLI_PATH, args);
    p.waitForFinished(30000);
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

}  // namespace

TEST(DevicesCliPulse, JsonListsDevicesDefaultsAndTheCable) {
    PARLOVA_REQUIRE_PULSE();
    const auto r = cli({"devices", "--json"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const auto root = QJsonDocument::fromJson(r.out.toUtf8()).object();
    ASSERT_FALSE(root.isEmpty()) << r.out.toStdString();
    EXPECT_EQ(root["defaultInput"].toObject()["uid"].toString(), "fake_mic");
    EXPECT_EQ(root["defaultOutput"].toObject()["uid"].toString(), "speakers");
    EXPECT_TRUE(root["virtualCable"].isNull());
    QStringList outputs;
    for (const auto& v : root["outputs"].toArray()) outputs << v.toObject()["name"].toString();
    EXPECT_TRUE(outputs.contains("Speakers") && outputs.contains("Headphones"));
    const auto text = cli({"devices"});
    EXPECT_EQ(text.code, 0);
    EXPECT_TRUE(text.out.contains("* Fake Microphone  [fake_mic]"));
    EXPECT_TRUE(text.out.contains("Virtual mic: not installed"));
    EXPECT_EQ(cli({"devices", "--bogus"}).code, 2);
}

TEST(DevicesCliPulse, MicInstallStatusRemove) {
    PARLOVA_REQUIRE_PULSE();
    ASSERT_TRUE(qEnvironmentVariable("XDG_CONFIG_HOME").startsWith(QString::fromStdString(PrivateServer::get()->dir())));
    auto r = cli({"mic", "install"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Installed \"Parlova Mic\""));
    r = cli({"mic", "status"});
    EXPECT_TRUE(r.out.contains("Parlova Mic loaded now: yes"));
    EXPECT_TRUE(r.out.contains("Loaded at login: yes"));
    r = cli({"devices", "--json"});
    EXPECT_EQ(QJsonDocument::fromJson(r.out.toUtf8()).object()["virtualCable"].toObject()["name"].toString(), "Parlova Mic");
    r = cli({"mic", "remove"});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    r = cli({"mic", "status"});
    EXPECT_TRUE(r.out.contains("Parlova Mic loaded now: no"));
    EXPECT_EQ(cli({"mic", "fly"}).code, 2);
}
