// parlova-cli run as a user runs it: a real process, a private settings folder
// and no reachable sound server. Only what the tool itself adds is checked here
// (arguments, exit codes, messages, the tail); formats, sentences and the sound
// are the file and engine tests' business.
#include "support/TestAudio.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSettings>

#include <gtest/gtest.h>

#include <fstream>

using namespace parlova;
using namespace parlova::testaudio;

namespace {

struct Result {
    int exitCode;
    QString out, err;
};

class Cli : public ::testing::Test {
protected:
    TempFolder folder;
    void SetUp() override { std::ofstream(folder.file("client.conf")) << "autospawn = no\n"; }

    Result run(const QStringList& args) {
        QProcess process;
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", path("config"));
        env.insert("PULSE_SERVER", "unix:" + path("no-server-here"));
        env.insert("PULSE_CLIENTCONFIG", path("client.conf"));
        process.setProcessEnvironment(env);
        process.start(PARLOVA_CLI_PATH, args);
        EXPECT_TRUE(process.waitForFinished(120000));
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }
    QString path(const std::string& name) { return QString::fromStdString(folder.file(name)); }
    // Whether the voice list was written (the one-time migration flag may be).
    bool settingsWritten() {
        QSettings settings(path("config/Parlova/Parlova.conf"), QSettings::IniFormat);
        return settings.contains("voices.v5");
    }
};

}  // namespace

TEST_F(Cli, VoicesListsTheStartingVoicesWithoutWritingSettings) {
    Result r = run({"voices"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(r.out.contains("Old Lady"));
    EXPECT_TRUE(r.out.contains("Middle-Aged Man"));
    r = run({"voices", "--json"});
    const auto doc = QJsonDocument::fromJson(r.out.toUtf8());
    ASSERT_TRUE(doc.isArray());
    EXPECT_EQ(doc.array().size(), 2);
    EXPECT_EQ(doc.array()[1].toObject()["targetPitch"].toDouble(), 108.0);
    EXPECT_FALSE(settingsWritten());
    EXPECT_EQ(run({"voices", "--bogus"}).exitCode, 2);
    EXPECT_EQ(run({"render", "--help"}).exitCode, 0);
}

TEST_F(Cli, RenderAppliesSetKeepsRateAndChannelsAndAddsTheTail) {
    const double rate = 44100;
    const Audio input = spread(tone(150, rate, 3 * 44100, 0.3f, Wave::saw), rate, 2);
    ASSERT_TRUE(writeWav(folder.file("saw.wav"), input, 16));
    Result r = run({"render", "--voice", "natural", "--set", "pitch=650", path("saw.wav"), path("shifted.flac")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const Audio rendered = readAudioFile(folder.file("shifted.flac"));
    EXPECT_EQ(rendered.sampleRate, rate);
    EXPECT_EQ(rendered.channelCount(), 2);
    EXPECT_EQ(rendered.frames(), input.frames() + static_cast<int64_t>(std::floor(0.8 * rate)));
    EXPECT_NEAR(cents(fundamental(rendered.channels[1], rate, 66150, 44100), 218.35), 0.0, 3.0);
    EXPECT_FALSE(settingsWritten());
}

TEST_F(Cli, FailuresExitWithTheirCodeAndSentence) {
    ASSERT_TRUE(writeWav(folder.file("good.wav"), spread(tone(300, 48000, 4800), 48000)));
    std::ofstream(folder.file("notes.txt")) << "these are not sounds\n";
    const struct {
        QStringList args;
        int code;
        QString sentence;  // in standard error
    } cases[] = {
        {{"render", "--voice", "Old Lady", path("missing.wav"), path("out.wav")}, 1, "Couldn't open that audio file: "},
        {{"render", "--voice", "Old Lady", path("good.wav"), path("no/such/folder/out.m4a")}, 1, "Export failed: "},
        {{"render", "--voice", "Old Lady", path("good.wav"), path("notes.txt")}, 1, "Export failed: "},
        {{"render", "--voice", "Nobody", path("good.wav"), path("o.wav")}, 2, ""},
        {{"render", "--voice", "Old Lady", "--set", "wobble=3", path("good.wav"), path("o.wav")}, 2, ""},
        {{"render", "--voice", "Old Lady", "--set", "pitch=high", path("good.wav"), path("o.wav")}, 2, ""},
        {{"live", "--voice", "Old Lady", "--seconds", "1"}, 1, "Couldn't reach the sound server."},
        {{"devices"}, 1, "Couldn't reach the sound server."},
    };
    for (const auto& c : cases) {
        const Result r = run(c.args);
        EXPECT_EQ(r.exitCode, c.code) << c.args.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains(c.sentence)) << r.err.toStdString();
    }
    EXPECT_EQ(QFile(path("notes.txt")).size(), 21);  // an unsupported type is refused before writing
    EXPECT_FALSE(QFile::exists(path("o.wav")));
    EXPECT_FALSE(settingsWritten());
}
