// parlova-cli run as a user runs it: a real process, a private settings folder
// and no reachable sound server. Only what the tool itself adds is checked here
// (arguments, exit codes, messages, the voice list it edits, the streams);
// formats, sentences and the sound are the file and engine tests' business.
#include "cli/CliProcess.h"
#include "support/Files.h"
#include "support/TestAudio.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>

#include <gtest/gtest.h>

#include <fstream>

using namespace parlova;
using namespace parlova::testaudio;
using parlova::testcli::Result;

namespace {

class Cli : public ::testing::Test {
protected:
    TempFolder folder;
    void SetUp() override { std::ofstream(folder.file("client.conf")) << "autospawn = no\n"; }

    Result run(const QStringList& args, const QByteArray& input = {}) {
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", path("config"));
        env.insert("PULSE_SERVER", "unix:" + path("no-server-here"));
        env.insert("PULSE_CLIENTCONFIG", path("client.conf"));
        return testcli::runCli(args, input, env);
    }
    QString path(const std::string& name) { return QString::fromStdString(folder.file(name)); }
    QByteArray storedVoices() {
        QSettings settings(path("config/Parlova/Parlova.conf"), QSettings::IniFormat);
        return settings.value("voices.v5").toByteArray();
    }
    // The voice's record as "voices export NAME" prints it.
    QJsonObject exported(const QString& name) {
        const Result r = run({"voices", "export", "--", name});
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        return QJsonDocument::fromJson(r.out).object();
    }
    void writeTone(const std::string& name, double seconds = 1.0) {
        ASSERT_TRUE(writeWav(folder.file(name), spread(tone(220, 48000, static_cast<int>(seconds * 48000)), 48000), 16));
    }
};

}  // namespace

TEST_F(Cli, VoicesListsTheStartingVoicesWithoutWritingSettings) {
    Result r = run({"voices"});
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.text().contains("Old Lady"));
    // Middle-Aged Man's fixed shift gives way to auto pitch; the list says so.
    EXPECT_TRUE(r.text().contains("auto pitch 108 Hz (pitch -400 cents unused while auto pitch is on)"));
    r = run({"voices", "--json"});
    const auto voices = QJsonDocument::fromJson(r.out).object()["voices"].toArray();
    ASSERT_EQ(voices.size(), 2) << r.text().toStdString();
    EXPECT_TRUE(voices[1].toObject()["autoPitch"].toBool());
    EXPECT_TRUE(voices[0].toObject()["starting"].toBool());
    EXPECT_TRUE(storedVoices().isEmpty());
}

TEST_F(Cli, OptionsTakeTheirValueEitherWay) {
    const struct {
        QStringList args;
        QString name;
    } cases[] = {
        {{"voices", "copy", "Old Lady", "--name", "Spaced"}, "Spaced"},
        {{"voices", "copy", "Old Lady", "--name=Joined"}, "Joined"},
        {{"voices", "copy", "--name=First", "old lady"}, "First"},
        {{"voices", "copy", "--name", "-dash-", "--", "Old Lady"}, "-dash-"},
    };
    for (const auto& c : cases) {
        const Result r = run(c.args);
        EXPECT_EQ(r.code, 0) << c.args.join(' ').toStdString() << ": " << r.err.toStdString();
        EXPECT_EQ(r.text().trimmed(), c.name);
        EXPECT_EQ(exported(c.name)["pitch"].toDouble(), 650.0);
    }
    // Without --name the copy is named after its source, and never twice alike.
    EXPECT_EQ(run({"voices", "copy", "Old Lady"}).text().trimmed(), "Old Lady Copy");
    EXPECT_EQ(run({"voices", "copy", "Old Lady"}).text().trimmed(), "Old Lady Copy 2");
}

TEST_F(Cli, UsageErrorsAreOneSentenceAndAHint) {
    writeTone("in.wav", 0.1);
    const QString in = path("in.wav");
    const struct {
        QStringList args;
        QString sentence, hint;
    } cases[] = {
        {{"render", "--voice", "Old Lady", in}, "OUTPUT is missing.", "render"},
        {{"render", in, "out.wav"}, "The option --voice NAME is missing.", "render"},
        {{"render", "--voice", "Old Lady", in, "a.wav", "b.wav"}, "Unexpected argument \"b.wav\".", "render"},
        {{"render", "--voise", "x"}, "Unknown option \"--voise\". Did you mean \"--voice\"?", "render"},
        {{"render", "--voice"}, "The option --voice needs a value (NAME).", "render"},
        {{"render", "--voice", "Old Lady", in, in}, "is the input file", "render"},
        {{"render", "--voice", "Olf Lady", in, "o.wav"}, "There's no voice named \"Olf Lady\". Did you mean \"Old Lady\"?", "render"},
        {{"voices", "--json=yes"}, "The option --json takes no value.", "voices"},
        {{"voices", "cpoy", "x"}, "\"cpoy\" isn't an action of voices. Did you mean \"copy\"?", "voices"},
        {{"play", "--voice", "a", "--voice", "b", in}, "The option --voice is given more than once.", "play"},
        {{"play", "--voice", "Natural", "--seconds", "soon", in}, "--seconds needs a positive number", "play"},
        {{"live", "--voice", "Natural", "--hear-myself"}, "--hear-myself works only with --call", "live"},
        {{"mic"}, "Name an action: install, remove, status or restore.", "mic"},
        {{"completion", "tcsh"}, "Completion is made for bash, zsh or fish", "completion"},
        {{"rendr"}, "Unknown command \"rendr\". Did you mean \"render\"?", ""},
    };
    for (const auto& c : cases) {
        const Result r = run(c.args);
        const QString hint = c.hint.isEmpty() ? "Try 'parlova-cli --help'." : "Try 'parlova-cli " + c.hint + " --help'.";
        EXPECT_EQ(r.code, 2) << c.args.join(' ').toStdString();
        ASSERT_EQ(r.errLines().size(), 2) << r.err.toStdString();
        EXPECT_TRUE(r.errLines()[0].contains(c.sentence)) << r.err.toStdString();
        EXPECT_EQ(r.errLines()[1], hint);
        EXPECT_TRUE(r.out.isEmpty());
    }
}

TEST_F(Cli, SettingsAreRefusedOutsideTheirRangeAndKeptInside) {
    ASSERT_EQ(run({"voices", "copy", "Natural", "--name", "Mine"}).code, 0);
    const struct {
        QString setting;
        const char* key;
        double stored;    // the value afterwards
        QString refusal;  // empty: accepted
    } cases[] = {
        {"pitch=1200", "pitch", 1200, ""},
        {"PITCH=-1200", "pitch", -1200, ""},
        {"pitch=1200.5", "pitch", -1200, "pitch must be between -1200 and 1200 cents (got 1200.5)."},
        {"targetPitch=320", "targetPitch", 320, ""},
        {"targetpitch=0", "targetPitch", 0, ""},
        {"targetPitch=69.5", "targetPitch", 0, "between 70 and 320 Hz, or 0 for off"},
        {"tremoloDepth=5", "tremoloDepth", 0, "tremoloDepth must be between 0.00 and 0.60"},
        {"gain=1e30", "gain", 0, "gain must be between -24.0 and 12.0 dB"},
        {"pich=10", "pitch", -1200, "There's no voice setting named \"pich\". Did you mean \"pitch\"?"},
        {"pitch=high", "pitch", -1200, "The value \"high\" for pitch isn't a number."},
    };
    for (const auto& c : cases) {
        const Result r = run({"voices", "set", "Mine", c.setting});
        EXPECT_EQ(r.code, c.refusal.isEmpty() ? 0 : 2) << c.setting.toStdString() << ": " << r.err.toStdString();
        if (!c.refusal.isEmpty()) {
            EXPECT_TRUE(r.err.contains(c.refusal)) << r.err.toStdString();
        }
        EXPECT_FLOAT_EQ(exported("Mine")[c.key].toDouble(), c.stored) << c.setting.toStdString();
    }
    // One bad value among good ones changes nothing; render refuses the same way.
    EXPECT_EQ(run({"voices", "set", "Mine", "formant=2", "reverb=101"}).code, 2);
    EXPECT_EQ(exported("Mine")["formant"].toDouble(), 0.0);
    writeTone("in.wav", 0.1);
    EXPECT_EQ(run({"render", "--voice", "Mine", "--set", "pitch=-20000", path("in.wav"), path("o.wav")}).code, 2);
    EXPECT_FALSE(QFile::exists(path("o.wav")));
}

TEST_F(Cli, AVoiceIsCopiedEditedExportedImportedAndRendered) {
    ASSERT_EQ(run({"voices", "copy", "Old Lady", "--name", "Granny"}).code, 0);
    ASSERT_EQ(run({"voices", "set", "granny", "pitch=300", "emoji=X", "name=Nana"}).code, 0);
    const Result exportedVoice = run({"voices", "export", "Nana"});
    ASSERT_EQ(exportedVoice.code, 0);
    // Starting voices keep their place: they are neither deleted nor overwritten.
    EXPECT_EQ(run({"voices", "delete", "Old Lady"}).code, 1);
    EXPECT_EQ(run({"voices", "reset", "Nana"}).code, 1);
    ASSERT_EQ(run({"voices", "delete", "Nana"}).code, 0);
    Result r = run({"voices", "import", "-"}, exportedVoice.out);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.text().trimmed(), "Nana");
    r = run({"voices", "import", "-"}, run({"voices", "export"}).out);  // everything again, starting voices too
    EXPECT_EQ(r.text().split('\n', Qt::SkipEmptyParts), QStringList({"Old Lady 2", "Middle-Aged Man 2", "Nana 2"}));
    const QJsonObject again = exported("Old Lady 2");
    EXPECT_FALSE(again.contains("presetKey"));
    EXPECT_NE(again["id"], exported("Old Lady")["id"]);
    EXPECT_EQ(exported("Nana")["pitch"].toDouble(), 300.0);
    writeTone("in.wav", 0.2);
    r = run({"render", "--quiet", "--voice", "nana", path("in.wav"), path("nana.flac")});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.isEmpty());
    EXPECT_EQ(readAudioFile(folder.file("nana.flac")).sampleRate, 48000);
}

TEST_F(Cli, ADamagedImportChangesNothingAndSaysWhy) {
    ASSERT_EQ(run({"voices", "copy", "Old Lady", "--name", "Kept"}).code, 0);
    const QByteArray before = storedVoices();
    QByteArray good = run({"voices", "export", "Kept"}).out.trimmed();
    const struct {
        QByteArray file;
        QString reason;
    } cases[] = {
        {"{\"name\": \"Half", "isn't valid JSON"},
        {"[]", "holds no voices"},
        {"42", "holds no voices"},
        {"[" + good + ", 7]", "Voice 2 in standard input isn't a JSON object."},
        {QByteArray(good).replace("\"grain\":", "\"grit\":"), "has no number \"grain\""},
        {QByteArray(good).replace("\"pitch\":650", "\"pitch\":99999"), "pitch must be between -1200 and 1200 cents"},
        {QByteArray(good).replace("\"name\":\"Kept\"", "\"name\":\"\""), "has no text \"name\""},
    };
    for (const auto& c : cases) {
        const Result r = run({"voices", "import", "-"}, c.file);
        EXPECT_EQ(r.code, 1) << c.file.toStdString();
        EXPECT_TRUE(r.err.startsWith("Nothing was imported: ")) << r.err.toStdString();
        EXPECT_TRUE(r.err.contains(c.reason)) << r.err.toStdString();
        EXPECT_EQ(storedVoices(), before);
    }
    const Result missing = run({"voices", "import", path("none.json")});
    EXPECT_TRUE(missing.err.contains(path("none.json") + "\": No such file or directory.")) << missing.err.toStdString();
}

TEST_F(Cli, StandardInputAndOutputCarryWavAndFlac) {
    const Audio input = spread(tone(150, 44100, 44100, 0.3f, Wave::saw), 44100, 2);
    ASSERT_TRUE(writeWav(folder.file("saw.wav"), input, 16));
    const QByteArray wav = testfiles::read(path("saw.wav"));
    const struct {
        QStringList typeOption;
        const char* name;
        QByteArray magic;
    } cases[] = {{{}, "piped.wav", "RIFF"}, {{"--type", "flac"}, "piped.flac", "fLaC"}};
    for (const auto& c : cases) {
        const Result r = run(QStringList{"render", "--voice", "Natural"} + c.typeOption + QStringList{"-", "-"}, wav);
        ASSERT_EQ(r.code, 0) << r.err.toStdString();
        EXPECT_TRUE(r.out.startsWith(c.magic));
        ASSERT_TRUE(testfiles::write(path(c.name), r.out));
        const Audio rendered = readAudioFile(folder.file(c.name));
        EXPECT_EQ(rendered.sampleRate, 44100);
        EXPECT_EQ(rendered.channelCount(), 2);
        EXPECT_EQ(rendered.frames(), input.frames() + static_cast<int64_t>(std::floor(0.8 * 44100)));
    }
    if (haveTool("sox")) {
        std::string warnings;
        runCapture("sox " + shellQuote(folder.file("piped.wav")) + " -n 2>&1", &warnings);
        EXPECT_EQ(warnings, "");  // the plain float header reads without complaint
    }
}

TEST_F(Cli, FailuresExitWithTheirCodeAndNameTheWholePath) {
    ASSERT_TRUE(writeWav(folder.file("good.wav"), spread(tone(300, 48000, 4800), 48000)));
    std::ofstream(folder.file("notes.txt")) << "these are not sounds\n";
    const struct {
        QStringList args;
        int code;
        QString sentence;  // in standard error
    } cases[] = {
        {{"render", "--voice", "Old Lady", path("missing.wav"), path("out.wav")}, 1,
         "The file \u201C" + path("missing.wav") + "\u201D doesn't exist."},
        {{"render", "--voice", "Old Lady", path("good.wav"), path("no/such/out.m4a")}, 1,
         "The folder \u201C" + path("no/such") + "\u201D doesn't exist."},
        {{"render", "--voice", "Old Lady", path("good.wav"), path("notes.txt")}, 1, "Export failed: "},
        {{"render", "--voice", "Old Lady", path("good.wav"), path("noext")}, 1, "has no type"},
        {{"render", "--voice", "Old Lady", path("good.wav"), "/proc/parlova.flac"}, 1, "doesn't take new files"},
        {{"live", "--voice", "Old Lady", "--seconds", "1"}, 1, "Couldn't reach the sound server."},
        {{"live", "--voice", "Old Lady", "--input", "mic"}, 1, "Couldn't reach the sound server."},
        {{"devices"}, 1, "Couldn't reach the sound server."},
    };
    for (const auto& c : cases) {
        const Result r = run(c.args);
        EXPECT_EQ(r.code, c.code) << c.args.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains(c.sentence)) << r.err.toStdString();
    }
    EXPECT_EQ(QFile(path("notes.txt")).size(), 21);  // an unsupported type is refused before writing
    EXPECT_TRUE(storedVoices().isEmpty());
}

TEST_F(Cli, CompletionScriptsAreMadeForEachShell) {
    for (const char* shell : {"bash", "zsh", "fish"}) {
        const Result r = run({"completion", shell});
        EXPECT_EQ(r.code, 0) << shell;
        EXPECT_TRUE(r.text().contains("voices")) << shell;
        if (!haveTool(shell)) continue;  // the shell itself checks the syntax where it is installed
        const QString script = path(std::string("completion.") + shell);
        ASSERT_TRUE(testfiles::write(script, r.out));
        EXPECT_EQ(runCapture(std::string(shell) + " -n " + shellQuote(script.toStdString()), nullptr), 0) << shell;
    }
}
