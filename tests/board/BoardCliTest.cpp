// parlova-cli board as a user runs it, with private settings and data
// folders, and "parlova-cli control board|say" reaching a control channel
// this test listens on, as the running Parlova would.
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cli/CliProcess.h"
#include "control/ControlRig.h"
#include "control/ControlServer.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testcli::Result;

namespace {

class BoardCli : public ::testing::Test {
protected:
    QTemporaryDir home;
    QProcessEnvironment env() {
        auto env = testcli::privateHome(home.path());
        env.insert("PULSE_SERVER", "unix:" + home.filePath("no-server-here"));
        return env;
    }
    Result board(const QStringList& args) { return testcli::runCli(QStringList{"board"} + args, {}, env()); }
};

}  // namespace

TEST_F(BoardCli, AddListRenameAndRemoveSoundsInTheBoardFile) {
    const QString horn = home.filePath("horn.wav");
    ASSERT_TRUE(testaudio::writeWav(horn.toStdString(), testaudio::spread(testaudio::tone(440, 48000, 96000), 48000), 16));
    struct Step {
        QStringList args;
        int exitCode;
        const char* says;  // in stdout or stderr
    } steps[] = {
        {{"add", horn}, 0, "Added \"horn\" on the key 1."},
        {{"add", "--text", "I'll be right back.", "--voice", "old lady", "--name", "Back soon"}, 0, "Back soon"},
        {{"add", "--text", "Hello", "--voice", "Olf Lady"}, 2, "There's no voice named \"Olf Lady\". Did you mean \"Old Lady\"?"},
        {{"add", horn, "--name", "back SOON"}, 1, "There's already a sound named \"Back soon\" on the board"},
        {{"add", home.filePath("missing.ogg")}, 1, "The board is unchanged."},
        {{"rename", "HORN", "Air horn"}, 0, "Renamed \"horn\" to \"Air horn\"."},
        {{"remove", "Air hron"}, 2, "There's no sound named \"Air hron\" on the board. Did you mean \"Air horn\"?"},
    };
    for (const auto& step : steps) {
        const Result r = board(step.args);
        EXPECT_EQ(r.code, step.exitCode) << step.args.join(' ').toStdString() << "\n" << r.err.toStdString();
        EXPECT_TRUE((r.text() + r.err).contains(step.says)) << (r.text() + r.err).toStdString();
    }

    const Result listed = board({"list", "--json"});
    const QJsonArray sounds = QJsonDocument::fromJson(listed.out).object()["sounds"].toArray();
    ASSERT_EQ(sounds.size(), 2) << listed.text().toStdString();
    EXPECT_EQ(sounds[0].toObject()["name"].toString(), "Air horn");
    EXPECT_NEAR(sounds[0].toObject()["seconds"].toDouble(), 2.0, 0.01);
    // The voice is found again by a later process.
    EXPECT_EQ(sounds[1].toObject()["voice"].toString(), "Old Lady");
    EXPECT_EQ(board({"remove", "air horn"}).code, 0);
    EXPECT_TRUE(QDir(home.filePath("data/Parlova/Board")).entryList({"clip-*"}, QDir::Files).isEmpty());
    EXPECT_EQ(board({"list", "--names"}).text(), "Back soon\n");
}

TEST_F(BoardCli, ControlBoardAndSayReachTheRunningParlova) {
    testcontrol::ControlRig rig;
    BoardStore store(home.filePath("board"));
    store.addSpeech("I'll be right back.", {}, {}, "Back soon");
    Soundboard soundboard(store, rig.engine, rig.store, nullptr);
    rig.commands.setBoard(&store, &soundboard);
    ControlServer server(rig.commands);
    QString error;
    ASSERT_TRUE(server.listen(&error, home.filePath("parlova-control"))) << error.toStdString();

    // The CLI waits on the socket while this process answers it.
    const auto control = [&](const QStringList& args) {
        QProcess process;
        process.setProcessEnvironment(env());
        process.start(PARLOVA_CLI_PATH, QStringList{"control"} + args);
        EXPECT_TRUE(testpulse::waitUntil([&] { return process.state() == QProcess::NotRunning; }, 30000));
        return std::pair{process.exitCode(), QString::fromUtf8(process.readAllStandardError())};
    };
    const struct {
        QStringList args;
        const char* says;
    } cases[] = {
        {{"board", "play", "Air", "horn"},
         "There is no sound named \u201cAir horn\u201d on the board. It has \u201cBack soon\u201d."},
        {{"board", "key", "4"}, "No sound of the board is on the key \u201c4\u201d."},
        {{"say", "Hello", "there", "--voice", "Olf Lady"}, "There is no voice named \u201cOlf Lady\u201d."},
        {{"say", "Hello", "--clone", "Old Lady"}, "\u201cOld Lady\u201d is an effect voice; say it with --voice."},
        {{"board", "stop", "now"}, "\u201cboard\u201d needs play and a sound's name, key and its key, or stop."},
    };
    for (const auto& c : cases) {
        const auto [code, err] = control(c.args);
        EXPECT_EQ(code, 1) << c.args.join(' ').toStdString();
        EXPECT_EQ(err.trimmed(), QString::fromUtf8(c.says)) << c.args.join(' ').toStdString();
    }
    EXPECT_EQ(rig.commands.status().value("board").toObject().value("sounds").toInt(), 1);
}
