#include "cloning/CloneWorkerSupport.h"
#include "cloning/ReadingScripts.h"
#include "cloning/Transcriber.h"
#include "support/TestAudio.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

namespace {

const QString kLate = ReadingScripts::sentences()[0];     // "Hey! Sorry I'm late, ..."
const QString kRainbow = ReadingScripts::sentences()[37];  // "When the sunlight strikes raindrops ..."

}  // namespace

TEST(TranscriberTest, SnapsToTheScriptOnlyWhenTheWordsMatchIt) {
    const QStringList script{kLate, kRainbow};
    struct Case {
        QString heard;
        std::optional<QString> snapped;
    } cases[] = {
        // What the recogniser really made of a reading: one word wrong, punctuation its own.
        {"Hey, sorry I'm late, the traffic was absolutely terminal this morning. When the sunlight strikes rain "
         "drops in the air they act as a prism and form a rainbow",
         kLate + " " + kRainbow},
        {"hey sorry im late the traffic was absolutely terrible this morning", kLate},  // stopped after one
        {"Could you send me that document again?", std::nullopt},
        {"hey sorry im late the traffic was absolutely terrible this morning and then I went on talking about "
         "something else entirely for quite a while longer than that",
         std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(Transcriber::snapToScript(c.heard, script), c.snapped) << c.heard.toStdString();
    EXPECT_EQ(Transcriber::snapToScript(kLate, {}), std::nullopt);
}

TEST(TranscriberTest, ReadScriptComesBackWordForWordThroughTheWorker) {
    if (const QString missing = clonetest::workerMissing(); !missing.isEmpty()) GTEST_SKIP() << missing.toStdString();
    QTemporaryDir dir;
    VoiceCloner cloner(clonetest::testWorkerOptions(dir.path()));
    Transcriber transcriber(&cloner);
    EXPECT_FALSE(Transcriber(nullptr).isAvailable());

    const QStringList script{kLate, kRainbow};
    const QString reading = dir.filePath("reading.wav");
    testaudio::writeWav(reading.toStdString(), testaudio::speech(script.join(' ').toStdString(), 16000), 16);
    const QString silence = dir.filePath("silence.wav");
    testaudio::writeWav(silence.toStdString(), testaudio::spread(std::vector<float>(32000, 0.0f), 16000), 16);

    std::vector<std::optional<QString>> results;
    for (const QString& file : {reading, silence})
        transcriber.transcribe(file, script, [&](const std::optional<QString>& text) { results.push_back(text); });
    ASSERT_TRUE(clonetest::waitFor([&] { return results.size() == 2; }));
    EXPECT_EQ(results[0], script.join(' '));
    EXPECT_EQ(results[1], std::nullopt);  // silence: no transcript rather than an empty one
}
