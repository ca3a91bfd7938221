#include "cloning/CloneWorkerSupport.h"
#include "cloning/LocalRecogniser.h"
#include "cloning/ReadingScripts.h"
#include "cloning/Transcriber.h"
#include "support/RealSpeech.h"
#include "support/TestAudio.h"

#include <QFileInfo>
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

namespace {

const QString kLibrivox = QString::fromStdString(testaudio::speechRecording("librivox")) + "/sense_and_sensibility_01_austen_64kb-";

// Share of the reference's words that the recogniser heard (as a bag of words).
double wordsHeard(const QString& heard, const QString& reference) {
    QStringList left = ReadingScripts::normalised(heard).split(' ', Qt::SkipEmptyParts);
    const QStringList wanted = ReadingScripts::normalised(reference).split(' ', Qt::SkipEmptyParts);
    int found = 0;
    for (const QString& w : wanted)
        if (left.removeOne(w)) ++found;
    return wanted.isEmpty() ? 0.0 : double(found) / double(wanted.size());
}

}  // namespace

// Before cloning is set up, the local recogniser hears real recorded speech
// and synthetic readings of the practice sentences; a reading snaps to the
// script's exact, punctuated words, anything else comes back as heard.
TEST(TranscriberTest, LocalRecogniserTranscribesBeforeSetup) {
    if (!LocalRecogniser::isAvailable()) GTEST_SKIP() << "PocketSphinx is missing (libpocketsphinx-dev, pocketsphinx-en-us)";
    if (!QFileInfo::exists(kLibrivox + "0880.wav")) GTEST_SKIP() << "recorded speech is missing (pocketsphinx-testdata)";
    if (!testaudio::haveTool("flite")) GTEST_SKIP() << "flite is missing";
    QTemporaryDir dir;
    VoiceClonerOptions options;
    options.supportDirectory = dir.path();
    VoiceCloner cloner(options);
    ASSERT_FALSE(cloner.isInstalled());
    const Transcriber transcriber(&cloner);
    ASSERT_TRUE(transcriber.isAvailable());

    const QString illDisposed = "He was not an ill-disposed young man.";
    const QString dashwood = "And Mister John Dashwood had then leisure to consider how much there might be "
                             "prudently in his power to do for them.";
    // A reading of the practice sentences by flite's voice, which the
    // recogniser hears about as well as a person.
    const QString readAloud = dir.filePath("practice.wav");
    const QStringList practice{kRainbow, ReadingScripts::sentences()[12]};  // "Let's order pizza tonight. ..."
    ASSERT_EQ(testaudio::runQuiet("flite -t " + testaudio::shellQuote(practice.join(' ').toStdString()) + " -o " +
                                  testaudio::shellQuote(readAloud.toStdString())),
              0);
    const QString silence = dir.filePath("silence.wav");
    testaudio::writeWav(silence.toStdString(), testaudio::spread(std::vector<float>(48000, 0.0f), 48000), 16);

    struct Case {
        QString file;
        QStringList script;
        std::optional<QString> exactly;  // the snapped transcript, when one is due
        QString spoken;                  // else: what was said, to be mostly heard
    } cases[] = {
        {kLibrivox + "0880.wav", {kLate, illDisposed}, illDisposed, {}},
        {readAloud, practice, practice.join(' '), {}},
        {kLibrivox + "0870.wav", {}, std::nullopt, dashwood},
        {kLibrivox + "0870.wav", {kLate, kRainbow}, std::nullopt, dashwood},  // read something else
        {silence, {}, std::nullopt, {}},
    };
    std::vector<std::optional<QString>> results;
    for (const auto& c : cases)
        transcriber.transcribe(c.file, c.script, [&](const std::optional<QString>& text) { results.push_back(text); });
    ASSERT_TRUE(clonetest::waitFor([&] { return results.size() == std::size(cases); }));
    for (size_t i = 0; i < results.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.file.toStdString());
        if (c.exactly) {
            EXPECT_EQ(results[i], c.exactly);
        } else if (c.spoken.isEmpty()) {
            EXPECT_EQ(results[i], std::nullopt);
        } else {
            ASSERT_TRUE(results[i].has_value());
            EXPECT_GE(wordsHeard(*results[i], c.spoken), 0.6) << results[i]->toStdString();
            EXPECT_TRUE(results[i]->at(0).isUpper() && results[i]->endsWith('.')) << results[i]->toStdString();
        }
    }
}
