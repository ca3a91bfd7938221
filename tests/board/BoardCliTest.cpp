// parlova-cli board as a user runs it, with private settings and data
// folders, and "parlova-cli control board|say" reaching a control channel
// this test listens on, as the running Parlova would.
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cli/CliProcess.h"
#include "control/ControlServer.h"
#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"
#include "voices/VoiceStore.h"

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
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home.path());
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_RUNTIME_DIR", home.path());
        env.insert("PULSE_SERVER", "unix:" + home.filePath("no-server-here"));
        return env;
    }
    Result board(const QStringList& args) { return testcli::runCli(QStringList{"board"} + args, {}, env()); }
    QString folder() { return home.filePath("data/Parlova/Board"); }
    QString wav(const QString& name, double seconds) {
        const QString path = home.filePath(name);
        EXPECT_TRUE(testaudio::writeWav(path.toStdString(),
                                        testaudio::spread(testaudio::tone(440, 48000, size_t(seconds * 48000)), 48000), 16));
        return path;
    }
};

}  // namespace

TEST_F(BoardCli, AddListRenameAndRemoveSoundsInTheBoardFile) {
    const QString horn = wav("horn.wav", 2.0);
    QFile notSound(home.filePath("notes.ogg"));
    ASSERT_TRUE(notSound.open(QIODevice::WriteOnly));
    notSound.write("not sound at all");
    notSound.close();
    struct Step {
        QStringList args;
        int exitCode;
        const char* says;  // in stdout or stderr
    } steps[] = {
        {{"list"}, 0, "The board is empty"},
        {{"add", horn}, 0, "Added \"horn\" on the key 1."},
        {{"add", "--text", "I'll be right back.", "--voice", "old lady", "--name", "Back soon"}, 0, "Back soon"},
        {{"add", "--text", "Hello", "--voice", "Olf Lady"}, 2, "There's no voice named \"Olf Lady\". Did you mean \"Old Lady\"?"},
        {{"add", "--text", "Hello", "--clone", "Granny"}, 2, "There's no cloned voice named \"Granny\"."},
        {{"add", horn, "--text", "Hi"}, 2, "Give either a FILE or --text TEXT, not both."},
        {{"add", horn, "--name", "back SOON"}, 1, "There's already a sound named \"Back soon\" on the board"},
        {{"add", notSound.fileName()}, 1, "The board is unchanged."},
        {{"list"}, 0, "Back soon"},
        {{"rename", "HORN", "Air horn"}, 0, "Renamed \"horn\" to \"Air horn\"."},
        {{"rename", "Air horn", " "}, 2, "The name of a sound can't be empty."},
        {{"remove", "Air hron"}, 2, "There's no sound named \"Air hron\" on the board. Did you mean \"Air horn\"?"},
    };
    for (const auto& step : steps) {
        const Result r = board(step.args);
        EXPECT_EQ(r.code, step.exitCode) << step.args.join(' ').toStdString() << "\n" << r.err.toStdString();
        EXPECT_TRUE((r.text() + r.err).contains(step.says))
            << step.args.join(' ').toStdString() << "\n" << (r.text() + r.err).toStdString();
    }

    const Result listed = board({"list", "--json"});
    const QJsonArray sounds = QJsonDocument::fromJson(listed.out).object()["sounds"].toArray();
    ASSERT_EQ(sounds.size(), 2) << listed.text().toStdString();
    const QJsonObject clip = sounds[0].toObject(), speech = sounds[1].toObject();
    EXPECT_EQ(clip["name"].toString(), "Air horn");
    EXPECT_EQ(clip["kind"].toString(), "clip");
    EXPECT_NEAR(clip["seconds"].toDouble(), 2.0, 0.01);
    EXPECT_EQ(speech["kind"].toString(), "speech");
    EXPECT_EQ(speech["key"].toString(), "2");
    EXPECT_EQ(speech["voice"].toString(), "Old Lady");
    EXPECT_EQ(speech["text"].toString(), "I'll be right back.");
    EXPECT_EQ(QDir(folder()).entryList({"clip-*"}, QDir::Files).size(), 1);

    const Result removed = board({"remove", "air horn"});
    EXPECT_EQ(removed.code, 0) << removed.err.toStdString();
    EXPECT_TRUE(QDir(folder()).entryList({"clip-*"}, QDir::Files).isEmpty());
    EXPECT_EQ(board({"list", "--names"}).text(), "Back soon\n");
}

TEST_F(BoardCli, ControlBoardAndSayReachTheRunningParlova) {
    QSettings settings(home.filePath("settings.ini"), QSettings::IniFormat);
    BackendJobs jobs;
    VoiceEngine engine(&settings, nullptr, jobs);
    VoiceStore voices(&settings);
    VoiceSelection selection(engine, voices);
    BoardStore store(home.filePath("board"));
    Soundboard soundboard(store, engine, voices, nullptr);
    ControlCommands commands(engine, selection);
    commands.setBoard(&store, &soundboard);
    ControlServer server(commands);
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
        {{"board", "play", "Air", "horn"}, "There is no sound named \u201cAir horn\u201d: the board is empty."},
        {{"board", "key", "4"}, "No sound of the board is on the key \u201c4\u201d."},
        {{"say", "Hello", "there", "--voice", "Olf Lady"}, "There is no voice named \u201cOlf Lady\u201d."},
        {{"say", "Hello", "--clone", "Old Lady"}, "\u201cOld Lady\u201d is an effect voice; say it with --voice."},
    };
    for (const auto& c : cases) {
        const auto [code, err] = control(c.args);
        EXPECT_EQ(code, 1) << c.args.join(' ').toStdString();
        EXPECT_EQ(err.trimmed(), QString::fromUtf8(c.says)) << c.args.join(' ').toStdString();
    }
}
