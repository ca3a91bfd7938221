// A clip exported and played in a cloned voice: re-spoken by the real worker
// (its test voice), then rendered with the natural voice.
#include "cloning/CloneWorkerSupport.h"
#include "media/AudioFile.h"
#include "engine/VoiceEngine.h"
#include "support/TestAudio.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using namespace parlova::clonetest;

TEST(CloneClipTest, ExportIsReSpokenAndFailuresCarryTheirPrefix) {
    if (const QString missing = workerMissing(); !missing.isEmpty()) GTEST_SKIP() << missing.toStdString();
    QTemporaryDir dir;
    QSettings settings(dir.filePath("settings.ini"), QSettings::IniFormat);
    CloneLibrary library(dir.filePath("support/ClonedVoices"), &settings);
    const QUuid reader = spokenVoice(library, "Reader", 6, dir.path());
    // One second of speech: too little to convert into.
    const QUuid brief = library.createVoice("Brief").id;
    const QString second = dir.filePath("second.wav");
    testaudio::writeWav(second.toStdString(), testaudio::speech("Hi.", 24000), 16);
    library.addSample(brief, second, "Hi.");
    ASSERT_FALSE(reader.isNull());
    VoiceCloner cloner(testWorkerOptions(dir.filePath("support")));

    BackendJobs jobs;
    VoiceEngine engine(&settings, nullptr, jobs);  // offline: no sound server needed to export
    const QString clip = library.target(reader).samples[0].path;
    ASSERT_TRUE(engine.loadClip(clip));
    engine.setClone(library.target(reader));
    const QString noCloner = dir.filePath("none.m4a");
    engine.exportClip(noCloner);
    EXPECT_EQ(engine.errorMessage(), "Export failed: Voice cloning isn't available.");

    engine.setCloner(&cloner);
    int conversions = 0;
    QObject::connect(&engine, &VoiceEngine::isConvertingChanged, [&] { conversions += engine.isConverting(); });
    bool exported = false;
    QObject::connect(&engine, &VoiceEngine::exportFinished, [&](const QString&, bool ok) { exported = ok; });
    const QString destination = dir.filePath("granny.m4a");
    ASSERT_TRUE(engine.exportClip(destination));
    EXPECT_FALSE(engine.exportClip(dir.filePath("second.m4a")));  // one at a time
    ASSERT_TRUE(waitFor([&] { return exported; })) << engine.errorMessage().toStdString();
    EXPECT_EQ(conversions, 1);
    const auto source = AudioFileReader::open(clip.toStdString());
    const auto result = AudioFileReader::open(destination.toStdString());
    const double seconds = double(result->frameLength()) / result->format().sampleRate;
    // The clip's length plus the renderer's reverb tail.
    EXPECT_NEAR(seconds, double(source->frameLength()) / source->format().sampleRate + 0.8, 0.1);

    engine.setClone(library.target(brief));
    engine.startPlayback();
    ASSERT_TRUE(waitFor([&] { return !engine.isConverting(); }));
    EXPECT_TRUE(engine.errorMessage().startsWith("Couldn't convert the clip to Brief's voice: "))
        << engine.errorMessage().toStdString();
}
