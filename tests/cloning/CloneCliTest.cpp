// parlova-cli clone as a user runs it, with private settings and data folders
// and voice cloning not set up.
#include "cli/CliProcess.h"
#include "support/Files.h"
#include "support/TestAudio.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

namespace {

class CloneCli : public ::testing::Test {
protected:
    QTemporaryDir home;
    testcli::Result clone(const QStringList& args) {
        return testcli::runCli(QStringList{"clone"} + args, {}, testcli::privateHome(home.path()));
    }
    QString libraryFolder() { return home.filePath("data/Parlova/ClonedVoices"); }
};

}  // namespace

TEST_F(CloneCli, VoicesSamplesAndTheSentencesOfFailures) {
    const QString sample = home.filePath("sample.wav");
    testaudio::writeWav(sample.toStdString(), testaudio::noise(3.0, 16000, 1, 0.1f), 16);
    struct Step {
        QStringList args;
        int exitCode;
        const char* says;  // in stdout or stderr
    } steps[] = {
        {{"list"}, 0, "* My Voice"},
        {{"create", "Granny"}, 0, ""},
        {{"create", "granny"}, 1, "There is already a cloned voice called \"granny\"."},
        {{"add-sample", "Granny", sample, "--transcript", "Hello there."}, 0, "Added a sample of 3.0 s."},
        {{"add-sample", "Granny", home.filePath("missing.wav")}, 1, "Couldn't add that sample: "},
        {{"samples", "Granny"}, 0, "Hello there."},
        {{"say", "Granny", "Hi"}, 1, "Record at least 5 seconds of samples first."},
        {{"say", "Nobody", "Hi"}, 1, "There is no cloned voice called \"Nobody\"."},
        {{"live", "Granny"}, 1, "Voice cloning isn't set up yet."},
        {{"convert", "Granny", sample, home.filePath("out.wav")}, 1, "Set up voice cloning on a cloned voice's page first."},
        {{"rename", "Granny", "Grandma"}, 0, ""},
        {{"list"}, 0, "Grandma\t3 s of samples"},
        {{"frobnicate", "Grandma"}, 2, "\"frobnicate\" isn't an action of clone."},
    };
    for (const auto& step : steps) {
        const auto r = clone(step.args);
        const QString said = r.text() + r.err;
        EXPECT_EQ(r.code, step.exitCode) << step.args.join(' ').toStdString() << "\n" << r.err.toStdString();
        EXPECT_TRUE(said.contains(step.says)) << step.args.join(' ').toStdString() << "\n" << said.toStdString();
    }

    // A damaged library is kept aside, and the tool goes on with an empty one.
    ASSERT_TRUE(testfiles::write(libraryFolder() + "/library.json", "{damaged"));
    const auto r = clone({"list"});
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.err.contains("library-unreadable-")) << r.err.toStdString();
    EXPECT_FALSE(r.text().contains("Grandma"));
    EXPECT_EQ(QDir(libraryFolder()).entryList({"library-unreadable-*.json"}).size(), 1);
}
