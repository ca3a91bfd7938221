#include "cloning/CloneLibrary.h"
#include "cloning/CloneModel.h"
#include "cloning/Generation.h"
#include "common/VoiceEngineError.h"
#include "support/Files.h"
#include "support/TestAudio.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

namespace {

class CloneLibraryTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString folder = dir.filePath("support/ClonedVoices");
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};

    QString wav(const QString& name, double seconds) {
        const QString path = dir.filePath(name);
        testaudio::writeWav(path.toStdString(), testaudio::noise(seconds, 16000, 1, 0.1f), 16);
        return path;
    }
    QStringList keptAside() { return QDir(folder).entryList({"library-unreadable-*.json"}); }
};

ClonedVoice voiceWith(std::initializer_list<std::pair<double, const char*>> samples) {
    ClonedVoice voice{QUuid::createUuid(), "Test", {}};
    for (const auto& [seconds, transcript] : samples)
        voice.samples.append({QUuid::createUuid(), "s.wav", transcript, seconds, QDateTime::currentDateTimeUtc()});
    return voice;
}

}  // namespace

TEST_F(CloneLibraryTest, FirstStartSamplesAndSelectionSurviveAReload) {
    QUuid granny;
    VoiceSample kept;
    {
        CloneLibrary library(folder, &settings);
        ASSERT_EQ(library.voices().size(), 1);
        EXPECT_EQ(library.voices()[0].name, "My Voice");
        EXPECT_EQ(library.selectedID(), library.voices()[0].id);

        granny = library.createVoice("Granny").id;
        EXPECT_EQ(library.selectedID(), granny);
        const VoiceSample first = library.addSample(granny, wav("first.wav", 1.5), "Hello there.");
        kept = library.addSample(granny, wav("second", 3.0));
        EXPECT_NEAR(first.duration, 1.5, 1e-3);
        EXPECT_TRUE(first.file.startsWith("sample-") && first.file.endsWith(".wav"));
        EXPECT_TRUE(kept.file.endsWith(".caf"));  // a source without an extension
        library.moveToTop(kept.id, granny);
        library.setTranscript("Second sample.", kept.id, granny);
        library.removeSample(first.id, granny);
        EXPECT_FALSE(QFile::exists(library.samplePath(granny, first)));
        library.rename(granny, "Grandma");
        EXPECT_TRUE(library.saveError().isEmpty());
    }
    CloneLibrary reloaded(folder, &settings);
    ASSERT_EQ(reloaded.voices().size(), 2);
    EXPECT_EQ(reloaded.selectedID(), granny);
    const ClonedVoice grandma = *reloaded.selected();
    EXPECT_EQ(grandma.name, "Grandma");
    ASSERT_EQ(grandma.samples.size(), 1);
    EXPECT_EQ(grandma.samples[0].id, kept.id);
    EXPECT_EQ(grandma.samples[0].transcript, "Second sample.");
    EXPECT_EQ(grandma.samples[0].added, kept.added);
    const CloneTarget target = reloaded.target(granny);
    ASSERT_EQ(target.samples.size(), 1);
    EXPECT_TRUE(QFile::exists(target.samples[0].path));

    // Deleting the selected voice removes its folder and selects a neighbour.
    reloaded.deleteVoice(granny);
    EXPECT_FALSE(QDir(reloaded.voiceFolder(granny)).exists());
    EXPECT_EQ(reloaded.selectedID(), reloaded.voices()[0].id);
}

TEST_F(CloneLibraryTest, UnreadableFilesAreKeptAsideAndNeverOverwritten) {
    const QByteArray cases[] = {
        "{not json",
        R"([{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","name":"A","samples":[{"transcript":"no file"}]}])",
        R"([{"name":"no id","samples":[]}])",
    };
    for (const QByteArray& bytes : cases) {
        ASSERT_TRUE(testfiles::write(folder + "/library.json", bytes));
        CloneLibrary library(folder, &settings);
        EXPECT_TRUE(library.voices().isEmpty()) << bytes.constData();
        EXPECT_FALSE(library.selectedID());
        EXPECT_EQ(testfiles::read(library.keptAsidePath()), bytes);
        library.createVoice("Fresh");  // saving writes a new library.json only
    }
    EXPECT_EQ(keptAside().size(), 3);  // within one second too, each kept
}

TEST_F(CloneLibraryTest, SampleThatIsNotAudioIsRefusedAndNothingIsCopied) {
    CloneLibrary library(folder, &settings);
    const QUuid id = library.voices()[0].id;
    const QString text = dir.filePath("notes.wav");
    ASSERT_TRUE(testfiles::write(text, "these are words, not sound"));
    EXPECT_THROW(library.addSample(id, text), VoiceEngineError);
    EXPECT_THROW(library.addSample(id, dir.filePath("missing.wav")), VoiceEngineError);
    EXPECT_TRUE(library.voices()[0].samples.isEmpty());
    EXPECT_TRUE(QDir(library.voiceFolder(id)).isEmpty(QDir::Files));
}

TEST(CloneModelTest, SamplesEachModelListensTo) {
    struct Case {
        std::initializer_list<std::pair<double, const char*>> samples;
        CloneModel model;
        std::vector<int> used;
        double seconds;
    } cases[] = {
        {{{20, ""}, {10, ""}}, CloneModel::fast, {0}, 15},
        {{{20, ""}, {10, ""}}, CloneModel::best, {0, 1}, 30},
        {{{50, ""}, {5, ""}}, CloneModel::best, {0}, 40},
        {{{10, ""}, {35, ""}, {20, ""}}, CloneModel::best, {0, 2}, 30},
        {{{10, ""}, {35, ""}}, CloneModel::fast, {0, 1}, 15},
        {{{14.7, ""}, {3, ""}}, CloneModel::fast, {0}, 14.7},  // under half a second left
    };
    for (const auto& c : cases) {
        const ClonedVoice voice = voiceWith(c.samples);
        QSet<QUuid> expected;
        for (int i : c.used) expected.insert(voice.samples[i].id);
        EXPECT_EQ(usedSamples(c.model, voice), expected) << rawValue(c.model).toStdString() << " " << c.seconds;
        EXPECT_NEAR(usedSeconds(c.model, voice), c.seconds, 1e-9);
    }
}

TEST(CloneModelTest, GenerationIsBlockedByTheFirstUnmetCondition) {
    struct Case {
        std::initializer_list<std::pair<double, const char*>> samples;
        CloneModel model;
        bool permission;
        const char* text;
        const char* blocker;
    } cases[] = {
        {{{4.9, "hi"}}, CloneModel::fast, false, "", "Record at least 5 seconds of samples first."},
        {{{6, "hi"}, {6, ""}}, CloneModel::best, false, "", "Best match needs a transcript for every sample it uses."},
        {{{6, ""}}, CloneModel::fast, false, "", "Confirm you have permission to clone this voice."},
        {{{6, ""}}, CloneModel::fast, true, " \n ", "Type something to say."},
        {{{6, "hi"}}, CloneModel::best, true, "Hello", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Generation::blocker(c.model, voiceWith(c.samples), c.permission, c.text), c.blocker);
}

TEST(CloneModelTest, DownloadedMeansASnapshotInTheModelCache) {
    QTemporaryDir home;
    const QString snapshots = home.filePath(".cache/huggingface/hub/" + cacheName(CloneModel::best) + "/snapshots");
    EXPECT_FALSE(isDownloaded(CloneModel::best, home.path()));
    QDir().mkpath(snapshots);
    EXPECT_FALSE(isDownloaded(CloneModel::best, home.path()));  // an interrupted first download
    QDir().mkpath(snapshots + "/0123abcd");
    EXPECT_TRUE(isDownloaded(CloneModel::best, home.path()));
    EXPECT_FALSE(isDownloaded(CloneModel::fast, home.path()));
}
