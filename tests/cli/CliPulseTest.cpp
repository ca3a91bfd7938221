// parlova-cli against the private sound server: devices, the virtual mic, the
// strict device choice and the repair of a system microphone a killed call
// mode left behind. What the tool prints and returns; the device list, the
// mic and live mode have their own tests.
#include "cli/CliProcess.h"
#include "devices/VirtualMic.h"
#include "engine/ClipSession.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <csignal>

using parlova::VirtualMic;
using parlova::testcli::Result;
using parlova::testcli::runCli;
using parlova::testpulse::PrivateServer;
using parlova::testpulse::VirtualMicModules;

namespace {

class CliPulse : public ::testing::Test {
protected:
    PrivateServer* server = nullptr;
    void SetUp() override {
        PARLOVA_REQUIRE_PULSE();
        server = PrivateServer::get();
        // Every client here, the tool included, keeps its settings in the server's folder.
        ASSERT_TRUE(qEnvironmentVariable("XDG_CONFIG_HOME").startsWith(QString::fromStdString(server->dir())));
        server->pactl("set-default-source fake_mic");
        server->pactl("set-default-sink speakers");
    }
    std::string defaultSource() { return server->pactl("get-default-source"); }
};

}  // namespace

TEST_F(CliPulse, DevicesJsonListsDevicesDefaultsAndTheCable) {
    const auto r = runCli({"devices", "--json"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.count('\n'), 1);  // one compact object
    const auto root = QJsonDocument::fromJson(r.out).object();
    EXPECT_EQ(root["defaultInput"].toObject()["uid"].toString(), "fake_mic");
    EXPECT_EQ(root["defaultOutput"].toObject()["uid"].toString(), "speakers");
    EXPECT_TRUE(root["virtualCable"].isNull());
    QStringList outputs;
    for (const auto& v : root["outputs"].toArray()) outputs << v.toObject()["name"].toString();
    EXPECT_TRUE(outputs.contains("Speakers") && outputs.contains("Headphones"));
    const auto text = runCli({"devices"});
    EXPECT_TRUE(text.text().contains("* Fake Microphone  [fake_mic]"));
    EXPECT_TRUE(text.text().contains("Virtual mic: not installed"));
}

TEST_F(CliPulse, MicInstallStatusRemove) {
    auto r = runCli({"mic", "install"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("Installed \"Parlova Mic\""));
    EXPECT_TRUE(r.out.isEmpty());
    r = runCli({"mic", "status", "--json"});
    const auto status = QJsonDocument::fromJson(r.out).object();
    EXPECT_TRUE(status["loaded"].toBool() && status["persisted"].toBool()) << r.text().toStdString();
    r = runCli({"mic", "remove"});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    r = runCli({"mic", "status"});
    EXPECT_TRUE(r.text().contains("Parlova Mic loaded now: no"));
    EXPECT_TRUE(r.text().contains("run 'parlova-cli mic install'"));
}

TEST_F(CliPulse, DevicesAreFoundByNameDescriptionOrUidOrRefusedWithTheList) {
    const struct {
        QStringList options;
        QString uid;  // the device live mode used; empty: refused
        QString refusal;
    } cases[] = {
        {{"--input", "fake_mic"}, "fake_mic", ""},
        {{"--input", "fake microphone"}, "fake_mic", ""},
        {{"--output=Headphones"}, "headphones", ""},
        {{"--input", "nosuch"}, "", "There's no input named \"nosuch\""},
        {{"--input", "speakers.monitor"}, "", "There's no input named \"speakers.monitor\""},
        {{"--output", "nosuch"}, "", "There's no output named \"nosuch\""},
        {{"--call", "--hear-myself"}, "", "a speaker, and echo into the call"},
    };
    for (const auto& c : cases) {
        const Result r = runCli(QStringList{"live", "--voice", "Natural", "--seconds", "0.3", "--json"} + c.options);
        if (!c.refusal.isEmpty()) {
            EXPECT_EQ(r.code, 2) << c.options.join(' ').toStdString();
            EXPECT_TRUE(r.err.contains(c.refusal)) << r.err.toStdString();
            // The refusal shows what there is to choose from, then the hint.
            EXPECT_TRUE(r.err.contains("[fake_mic]") || r.err.contains("[headphones]") || c.uid.isEmpty());
            EXPECT_TRUE(r.errLines().last().startsWith("Try 'parlova-cli live --help'."));
            continue;
        }
        ASSERT_EQ(r.code, 0) << c.options.join(' ').toStdString() << ": " << r.err.toStdString();
        const auto started = QJsonDocument::fromJson(r.out.split('\n').first()).object();
        EXPECT_EQ(started["event"].toString(), "started");
        const QString used = started[c.options.first().startsWith("--input") ? "input" : "output"].toObject()["uid"].toString();
        EXPECT_EQ(used, c.uid);
    }
    EXPECT_EQ(runCli({"play", "--voice", "Natural", "--output", "nosuch", "x.wav"}).code, 2);
}

// The repair that any other command makes at its start is tried beside a call
// in CallOwnerPulseTest; here the explicit one, and what mic status says first.
TEST_F(CliPulse, AMicrophoneLeftOnParlovaMicByAKilledCallIsGivenBack) {
    VirtualMicModules mic(*server);
    ASSERT_GE(mic.source, 0);
    QProcess call;
    call.start(PARLOVA_CLI_PATH, {"live", "--voice", "Natural", "--call", "--json"});
    QByteArray events;
    ASSERT_TRUE(parlova::testpulse::waitUntil(
        [&] {
            events += call.readAllStandardOutput();
            return events.contains("\"started\"") && defaultSource() == VirtualMic::kSourceName;
        },
        15000))
        << call.readAllStandardError().toStdString();
    ::kill(static_cast<pid_t>(call.processId()), SIGKILL);  // no chance to give the microphone back
    call.waitForFinished(5000);
    ASSERT_EQ(defaultSource(), VirtualMic::kSourceName);
    const Result status = runCli({"mic", "status"});
    EXPECT_TRUE(status.text().contains("System microphone on the virtual mic: yes"));
    EXPECT_TRUE(status.text().contains("run 'parlova-cli mic restore'"));
    const Result r = runCli({"mic", "restore"});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("it is \"Fake Microphone\" again.")) << r.err.toStdString();
    EXPECT_EQ(defaultSource(), "fake_mic");
}

// The length asked for is audio, however long the microphone takes to send its
// first sound, and the recording in progress does not outlive the command.
TEST_F(CliPulse, RecordTakesTheLengthAskedForAndLeavesNothingBehind) {
    namespace ta = parlova::testaudio;
    QTemporaryDir dir;
    const std::string feedPath = dir.filePath("tone.wav").toStdString(), out = dir.filePath("take.wav").toStdString();
    ASSERT_TRUE(ta::writeWav(feedPath, {48000.0, {ta::tone(220, 48000, 48000, 0.4f)}}));
    parlova::testpulse::MicFeed feed(feedPath, true);
    for (const double seconds : {1.0, 2.5}) {
        const Result r = runCli({"record", "--seconds", QString::number(seconds), QString::fromStdString(out)});
        ASSERT_EQ(r.code, 0) << r.err.toStdString();
        const ta::Audio take = ta::readAudioFile(out);
        EXPECT_EQ(take.frames(), std::llround(seconds * take.sampleRate));
        const auto& mono = take.channels.front();
        EXPECT_NEAR(ta::fundamental(mono, take.sampleRate, mono.size() / 2, mono.size() / 3), 220.0, 3.0);
    }
    const QFileInfo folder(parlova::recordingsFolder());
    EXPECT_TRUE(QDir(folder.filePath()).isEmpty());
    EXPECT_EQ(folder.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::ExeOther), 0);
}
