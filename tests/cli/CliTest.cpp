// parlova-cli run as a user runs it: a real process, a private settings folder,
// real files in and out, measured.
#include "support/TestAudio.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSettings>

#include <gtest/gtest.h>

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

    Result run(const QStringList& args) {
        QProcess process;
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", QString::fromStdString(folder.file("config")));
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

TEST_F(Cli, RenderAddsTheTailAndKeepsRateAndChannels) {
    for (auto [rate, channels] : {std::pair{44100.0, 1}, {48000.0, 2}, {22050.0, 1}}) {
        const Audio input = spread(tone(220, rate, static_cast<size_t>(1.3 * rate), 0.3f), rate, channels);
        ASSERT_TRUE(writeWav(folder.file("in.wav"), input, 16));
        for (const char* ext : {"wav", "flac"}) {
            const QString out = path(std::string("out.") + ext);
            Result r = run({"render", "--voice", "Old Lady", path("in.wav"), out});
            ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
            const Audio rendered = readAudioFile(out.toStdString());
            EXPECT_EQ(rendered.frames(), input.frames() + static_cast<int64_t>(std::floor(0.8 * rate))) << ext;
            EXPECT_EQ(rendered.sampleRate, rate);
            EXPECT_EQ(rendered.channelCount(), channels);
        }
    }
}

TEST_F(Cli, RenderShiftsPitchAsAskedThroughEveryFormat) {
    const double rate = 48000;
    Audio saw;
    saw.sampleRate = rate;
    saw.channels = {testaudio::tone(150, rate, static_cast<size_t>(3.0 * rate), 0.3f, testaudio::Wave::saw)};
    ASSERT_TRUE(writeWav(folder.file("saw.wav"), saw));
    for (const char* ext : {"flac", "m4a"}) {
        const QString out = path(std::string("shifted.") + ext);
        Result r = run({"render", "--voice", "natural", "--set", "pitch=650", path("saw.wav"), out});
        ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
        const Audio rendered = readAudioFile(out.toStdString());
        const double hz = testaudio::fundamental(rendered.channels[0], rate, static_cast<size_t>(1.5 * rate),
                                                static_cast<size_t>(rate));
        EXPECT_NEAR(testaudio::cents(hz, 218.35), 0.0, 3.0) << ext << " " << hz;
        EXPECT_NEAR(static_cast<double>(rendered.frames()), 3.8 * rate, 3000) << ext;  // AAC frames
    }
}

TEST_F(Cli, BadInputGivesTheEngineSentenceAndTouchesNothing) {
    QFile text(path("notes.txt"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("these are not sounds\n");
    text.close();
    QFile empty(path("empty.wav"));
    ASSERT_TRUE(empty.open(QIODevice::WriteOnly));
    empty.close();
    ASSERT_TRUE(writeWav(folder.file("good.wav"), spread(tone(300, 48000, 24000), 48000)));

    for (const QString& input : {path("missing.wav"), path("empty.wav"), path("notes.txt"), path("")}) {
        Result r = run({"render", "--voice", "Old Lady", input, path("out.wav")});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(r.err.startsWith("Couldn't open that audio file: ")) << r.err.toStdString();
        EXPECT_TRUE(r.err.trimmed().endsWith(".")) << r.err.toStdString();
    }
    Result r = run({"render", "--voice", "Old Lady", path("good.wav"), path("no/such/folder/out.m4a")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.startsWith("Export failed: ")) << r.err.toStdString();

    // An unsupported extension is refused before the destination is touched.
    r = run({"render", "--voice", "Old Lady", path("good.wav"), path("notes.txt")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.startsWith("Export failed: ")) << r.err.toStdString();
    EXPECT_EQ(QFile(path("notes.txt")).size(), 21);

    EXPECT_EQ(run({"render", "--voice", "Nobody", path("good.wav"), path("o.wav")}).exitCode, 2);
    EXPECT_EQ(run({"render", "--voice", "Old Lady", "--set", "wobble=3", path("good.wav"), path("o.wav")}).exitCode, 2);
    EXPECT_EQ(run({"render", "--voice", "Old Lady", "--set", "pitch=high", path("good.wav"), path("o.wav")}).exitCode, 2);
    EXPECT_FALSE(settingsWritten());
}

TEST_F(Cli, LiveWithoutASoundServerSaysSoAndRenderStillWorks) {
    QFile config(path("client.conf"));
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write("autospawn = no\n");
    config.close();
    QProcess process;
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", path("config"));
    env.insert("PULSE_SERVER", "unix:" + path("no-server-here"));
    env.insert("PULSE_CLIENTCONFIG", path("client.conf"));
    process.setProcessEnvironment(env);
    process.start(PARLOVA_CLI_PATH, {"live", "--voice", "Old Lady", "--seconds", "1"});
    ASSERT_TRUE(process.waitForFinished(20000));
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_TRUE(QString::fromUtf8(process.readAllStandardError()).contains("Couldn't reach the sound server."));

    ASSERT_TRUE(writeWav(folder.file("in.wav"), spread(tone(200, 48000, 14400), 48000)));
    process.start(PARLOVA_CLI_PATH, {"render", "--voice", "Old Lady", path("in.wav"), path("out.flac")});
    ASSERT_TRUE(process.waitForFinished(20000));
    EXPECT_EQ(process.exitCode(), 0);
}
