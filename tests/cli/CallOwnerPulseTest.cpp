// One owner of a call per session, tried with real processes side by side on
// the private sound server: what runs beside a call never takes the system
// microphone from it, a second live is refused, a killed owner is repaired by
// the next command (never by a control command), a microphone moved by
// another program is reported and left as the user chose it, and the desktop
// app runs once.
#include "cli/CliProcess.h"
#include "devices/VirtualMic.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <csignal>
#include <fstream>
#include <optional>

using namespace parlova;
using namespace parlova::testpulse;
using parlova::testcli::Result;

namespace {

constexpr int kRate = 48000;

// A user's session: its own settings and runtime folder, on the private server.
class CallOwnerPulse : public ::testing::Test {
protected:
    void SetUp() override {
        PARLOVA_REQUIRE_PULSE();
        server = PrivateServer::get();
        server->pactl("set-default-source fake_mic");
        mic.emplace(*server);
        env = testcli::privateHome(dir.path());
        const std::string feedPath = dir.filePath("tone.wav").toStdString();
        testaudio::writeWav(feedPath, {double(kRate), {testaudio::tone(300, kRate, 20 * kRate, 0.3f)}});
        feed = std::make_unique<MicFeed>(feedPath, true);
    }
    void TearDown() override {
        for (auto& p : processes) {
            if (p->state() != QProcess::NotRunning) p->kill();
            p->waitForFinished(5000);
        }
        feed.reset();
        mic.reset();
        if (server) server->pactl("set-default-source fake_mic");
    }

    Result cli(const QStringList& args) { return testcli::runCli(args, {}, env); }
    QProcess& start(const QString& program, const QStringList& args, const QProcessEnvironment& with = {}) {
        processes.push_back(std::make_unique<QProcess>());
        QProcess& p = *processes.back();
        p.setProcessEnvironment(with.isEmpty() ? env : with);
        p.start(program, args);
        return p;
    }
    QJsonObject status() {
        const Result r = cli({"control", "status", "--json"});
        return QJsonDocument::fromJson(r.out).object();
    }
    bool waitLive(QProcess& live) {
        return waitUntil([&] { return status().value("live").toBool() && defaultSource() == VirtualMic::kSourceName; },
                         10000) ||
               (ADD_FAILURE() << live.readAllStandardError().toStdString(), false);
    }
    std::string defaultSource() const { return server->pactl("get-default-source"); }

    PrivateServer* server = nullptr;
    std::optional<VirtualMicModules> mic;
    QTemporaryDir dir;
    QProcessEnvironment env;
    std::unique_ptr<MicFeed> feed;
    std::vector<std::unique_ptr<QProcess>> processes;
};

// The level of "Parlova Mic" over `ms`, as a call app records it (dBFS).
double heardDb(const QTemporaryDir& dir, int ms) {
    SourceRecorder app(VirtualMic::kSourceName, dir.filePath("heard.wav").toStdString());
    pump(ms);
    const auto heard = app.stop();
    const size_t skip = std::min(heard.size(), static_cast<size_t>(0.3 * kRate));  // the switch's own ramp
    return testaudio::toDb(testaudio::rms(heard, skip));
}

}  // namespace

TEST_F(CallOwnerPulse, CommandsBesideACallLeaveItsMicrophoneAndItsPushToTalkAlone) {
    QProcess& live = start(PARLOVA_CLI_PATH, {"live", "--voice", "Old Lady", "--call", "--talk", "push-to-talk"});
    ASSERT_TRUE(waitLive(live));

    struct Step {
        QStringList args;
        int code;
        bool talking;  // what "Parlova Mic" carries afterwards
    };
    const Step steps[] = {
        {{"control", "ptt", "press"}, 0, true},
        {{"voices", "--names"}, 0, true},
        {{"devices"}, 0, true},
        {{"control", "status"}, 0, true},
        {{"mic", "status"}, 0, true},
        {{"control", "ptt", "release"}, 0, false},
        {{"mic", "restore"}, 1, false},  // the call owns the microphone: refused, with who and how to stop it
        {{"live", "--voice", "Natural", "--call"}, 1, false},
        {{"live", "--voice", "Natural"}, 1, false},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.args.join(' ').toStdString());
        const Result r = cli(step.args);
        EXPECT_EQ(r.code, step.code) << r.err.toStdString();
        if (step.code != 0) {
            EXPECT_TRUE(r.err.contains("parlova-cli live")) << r.err.toStdString();
            EXPECT_TRUE(r.err.contains("parlova-cli control live stop")) << r.err.toStdString();
        }
        EXPECT_FALSE(r.err.contains("left on")) << r.err.toStdString();
        EXPECT_EQ(defaultSource(), VirtualMic::kSourceName);
        EXPECT_EQ(status().value("talking").toBool(), step.talking);
        const double db = heardDb(dir, 900);
        if (step.talking) EXPECT_GT(db, -30.0);
        else EXPECT_LT(db, -70.0);
    }
    EXPECT_EQ(live.state(), QProcess::Running);
    EXPECT_TRUE(status().value("live").toBool());

    // Killed, the owner leaves the microphone behind. Control commands only
    // talk to a running Parlova; the next other command repairs.
    ::kill(static_cast<pid_t>(live.processId()), SIGKILL);
    live.waitForFinished(5000);
    EXPECT_EQ(cli({"control", "status"}).code, 1);
    EXPECT_EQ(defaultSource(), VirtualMic::kSourceName);
    const Result repair = cli({"voices", "--names"});
    EXPECT_TRUE(repair.err.contains("left on")) << repair.err.toStdString();
    EXPECT_EQ(defaultSource(), "fake_mic");
}

TEST_F(CallOwnerPulse, AMicrophoneMovedDuringACallIsReportedAndLeftAsChosen) {
    const int otherSink = server->nullSink("other_feed", "Other Feed", 1);
    const int other = server->remapSource("other_feed", "usb_mic", "USB Mic");
    QProcess& live = start(PARLOVA_CLI_PATH, {"live", "--voice", "Natural", "--call"});
    ASSERT_TRUE(waitLive(live));

    server->pactl("set-default-source usb_mic");  // another program, or the sound settings
    EXPECT_TRUE(waitUntil([&] { return status().value("systemMicElsewhere").toString() == "USB Mic"; }, 5000));
    EXPECT_EQ(defaultSource(), "usb_mic");  // not taken back behind the user's back
    const Result stop = cli({"control", "live", "stop"});
    EXPECT_EQ(stop.code, 0) << stop.err.toStdString();
    ASSERT_TRUE(live.waitForFinished(10000));
    EXPECT_EQ(live.exitCode(), 0);
    const QString said = QString::fromUtf8(live.readAllStandardError());
    EXPECT_TRUE(said.contains("Call apps now hear \u201cUSB Mic\u201d, not Parlova Mic.")) << said.toStdString();
    pump(500);
    EXPECT_EQ(defaultSource(), "usb_mic");  // the user's choice stays after the call, too
    EXPECT_FALSE(cli({"voices", "--names"}).err.contains("left on"));
    EXPECT_EQ(defaultSource(), "usb_mic");
    server->unloadModule(other);
    server->unloadModule(otherSink);
}

TEST_F(CallOwnerPulse, TheAppRunsOnceAndASecondLaunchHandsItsOptionsOver) {
#ifndef PARLOVA_APP_PATH
    GTEST_SKIP() << "The desktop app is not built.";
#else
    QProcessEnvironment offscreen = env;
    offscreen.insert("QT_QPA_PLATFORM", "offscreen");
    QProcess& first = start(PARLOVA_APP_PATH, {"--minimized"}, offscreen);
    ASSERT_TRUE(waitUntil([&] { return !status().isEmpty(); }, 15000)) << first.readAllStandardError().toStdString();
    QProcess& second = start(PARLOVA_APP_PATH, {"--voice", "Middle-Aged Man", "--call", "--live"}, offscreen);
    ASSERT_TRUE(second.waitForFinished(15000));
    EXPECT_EQ(second.exitCode(), 0) << second.readAllStandardError().toStdString();
    EXPECT_NE(first.state(), QProcess::NotRunning);  // the first window is still up
    EXPECT_TRUE(waitLive(first));
    const QJsonObject s = status();
    EXPECT_EQ(s.value("voice").toString(), "Middle-Aged Man");
    EXPECT_TRUE(s.value("callMode").toBool());

    // The window owns the call now: a live command beside it is refused.
    const Result refused = cli({"live", "--voice", "Natural"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_TRUE(refused.err.contains("the Parlova window")) << refused.err.toStdString();
    first.terminate();
    ASSERT_TRUE(first.waitForFinished(10000));
    EXPECT_EQ(defaultSource(), "fake_mic");
#endif
}

// A frozen server: a live start gives up with its sentence within its bound
// (never past --seconds) instead of waiting to be killed.
TEST_F(CallOwnerPulse, AStartAgainstAFrozenServerGivesUpWithASentence) {
    std::ifstream pidFile(server->dir() + "/pulseaudio.pid");
    pid_t pid = 0;
    pidFile >> pid;
    ASSERT_GT(pid, 0);
    const QStringList commands[] = {{"live", "--voice", "Natural", "--seconds", "3"},
                                    {"live", "--voice", "Old Lady", "--call", "--seconds", "2"}};
    ::kill(pid, SIGSTOP);
    for (const QStringList& args : commands) {
        SCOPED_TRACE(args.join(' ').toStdString());
        QElapsedTimer took;
        took.start();
        const Result r = cli(args);
        EXPECT_EQ(r.code, 1);
        EXPECT_TRUE(r.err.contains("The sound server did not answer")) << r.err.toStdString();
        EXPECT_LT(took.elapsed(), 30000);  // generous: it used to wait until killed
    }
    ::kill(pid, SIGCONT);
}

TEST_F(CallOwnerPulse, TheBoardPlaysIntoTheCallOfTheOwnerWhileItsVoiceIsMuted) {
    env.insert("XDG_CACHE_HOME", dir.filePath("cache"));
    const QString beep = dir.filePath("beep.wav");
    testaudio::writeWav(beep.toStdString(), {double(kRate), {testaudio::tone(1200, kRate, kRate, 0.3f)}});
    ASSERT_EQ(cli({"board", "add", beep, "--name", "Beep"}).code, 0);
    QProcess& live = start(PARLOVA_CLI_PATH, {"live", "--voice", "Natural", "--call", "--talk", "push-to-talk"});
    ASSERT_TRUE(waitLive(live));
    ASSERT_LT(heardDb(dir, 500), -70.0);  // push to talk is up: the voice is muted

    SourceRecorder app(VirtualMic::kSourceName, dir.filePath("board.wav").toStdString());
    const Result played = cli({"control", "board", "play", "beep"});
    EXPECT_EQ(played.code, 0) << played.err.toStdString();
    pump(1300);
    const auto heard = app.stop();
    EXPECT_GT(testaudio::fundamental(heard, kRate, testaudio::loudestStart(heard, kRate / 2), kRate / 2), 1150.0);
    EXPECT_GT(testaudio::toDb(testaudio::rms(heard, testaudio::loudestStart(heard, kRate / 2), kRate / 2)), -20.0);

    const Result unknown = cli({"control", "board", "play", "Nope"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_TRUE(unknown.err.contains("Beep")) << unknown.err.toStdString();  // names what is on the board
}
