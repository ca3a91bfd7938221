// "parlova-cli live --clone" as a user runs it, on the private sound server
// with the real worker's test voice: one live command for every voice, with
// the same options and exit codes, that says when it talks and ends on time.
#include "cli/CliProcess.h"
#include "cloning/CloneSetup.h"
#include "cloning/CloneWorkerSupport.h"
#include "support/Files.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

using namespace parlova;
using namespace parlova::testpulse;

namespace {

class CloneLiveCliPulse : public ::testing::Test {
protected:
    void SetUp() override {
        PARLOVA_REQUIRE_PULSE();
        if (const QString missing = clonetest::workerMissing(); !missing.isEmpty())
            GTEST_SKIP() << missing.toStdString();
        PrivateServer::get()->pactl("set-default-source fake_mic");
        env = testcli::privateHome(home.path());
        clonetest::addTestWorkerEnvironment(env);
        // Cloning set up: the lab's worker is the source folder's, with its environment.
        const QString lab = home.filePath("data/Parlova/voice-lab");
        ASSERT_TRUE(testfiles::write(lab + "/.ready",
                                     SetupPlan::forSupportDirectory(home.filePath("data/Parlova"), env).key.toUtf8()));
        ASSERT_TRUE(QFile::link(clonetest::workerFolder(), lab + "/worker"));
        QSettings settings(home.filePath("config/Parlova/Parlova.conf"), QSettings::NativeFormat);
        CloneLibrary library(home.filePath("data/Parlova/ClonedVoices"), &settings);
        ASSERT_FALSE(clonetest::spokenVoice(library, "Reader", 6, home.path()).isNull());
        const auto speech = testaudio::speech("When the sunlight strikes raindrops in the air, they form a rainbow.", 48000);
        testaudio::writeWav(home.filePath("speech.wav").toStdString(), speech);
        feed = std::make_unique<MicFeed>(home.filePath("speech.wav").toStdString(), true);
    }

    QTemporaryDir home;
    QProcessEnvironment env;
    std::unique_ptr<MicFeed> feed;
};

}  // namespace

TEST_F(CloneLiveCliPulse, TalksSaysSoAndEndsBySecondsOrCtrlC) {
    struct Case {
        QStringList args;
        bool interrupt;  // Ctrl-C once it talks, instead of waiting for --seconds
    };
    const Case cases[] = {
        {{"live", "--clone", "Reader", "--latency", "fastest", "--seconds", "3"}, false},
        {{"clone", "live", "Reader", "--seconds", "3"}, false},
        {{"live", "--clone", "reader", "--json"}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.join(' ').toStdString());
        QProcess live;
        live.setProcessEnvironment(env);
        live.start(PARLOVA_CLI_PATH, c.args);
        QByteArray said;
        const bool talked = waitUntil(
            [&] {
                said += live.readAllStandardError() + live.readAllStandardOutput();
                return said.contains("Talking live as Reader") || said.contains("\"event\":\"started\"") ||
                       live.state() == QProcess::NotRunning;
            },
            120000);
        ASSERT_TRUE(talked && live.state() == QProcess::Running) << said.toStdString();
        if (c.interrupt) ::kill(static_cast<pid_t>(live.processId()), SIGINT);
        ASSERT_TRUE(live.waitForFinished(30000)) << "still running after it should have ended";
        said += live.readAllStandardError() + live.readAllStandardOutput();
        EXPECT_EQ(live.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(live.exitCode(), 0) << said.toStdString();
    }
}

TEST_F(CloneLiveCliPulse, MistakesInTheCommandLineAreRefusedAsForAnyVoice) {
    struct Case {
        QStringList args;
        int code;
        const char* says;
    };
    const Case cases[] = {
        {{"live", "--clone", "Nobody"}, 2, "the cloned voices are: My Voice, Reader."},
        {{"live", "--clone", "Reader", "--voice", "Old Lady"}, 2, "not both"},
        {{"live", "--voice", "Old Lady", "--latency", "fastest"}, 2, "only with --clone"},
        {{"live", "--clone", "Reader", "--latency", "slowest"}, 2, "fastest, balanced or clearest"},
        {{"live"}, 2, "Choose a voice"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.join(' ').toStdString());
        const testcli::Result r = testcli::runCli(c.args, {}, env);
        EXPECT_EQ(r.code, c.code);
        EXPECT_TRUE(r.err.contains(c.says)) << r.err.toStdString();
    }
}
