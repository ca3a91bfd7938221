// The cloner against the real clone worker process (its offline test voice).
// Conversion through it is tried where the user meets it, a clip's export
// (CloneClipTest).
#include "cloning/CloneWorkerSupport.h"
#include "cloning/WorkerProtocol.h"
#include "media/AudioFile.h"
#include "support/Files.h"

#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using namespace parlova::clonetest;

namespace {

class VoiceClonerWorkerTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const QString missing = workerMissing(); !missing.isEmpty()) GTEST_SKIP() << missing.toStdString();
        voiceID = spokenVoice(library, "Reader", 8, dir.path());
        ASSERT_FALSE(voiceID.isNull());
    }
    QTemporaryDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    CloneLibrary library{dir.filePath("support/ClonedVoices"), &settings};
    VoiceCloner cloner{testWorkerOptions(dir.filePath("support"))};
    QUuid voiceID;
};

}  // namespace

TEST_F(VoiceClonerWorkerTest, QueuedTakesComeBackDescribedAndSamplesAreHeard) {
    EXPECT_EQ(cloner.state(), VoiceCloner::State::ready);
    const CloneTarget target = library.target(voiceID);
    int finished = 0;
    QString error;
    auto generated = [&](const std::optional<Take>&, const QString& e) {
        error += e;
        ++finished;
    };
    cloner.generate("Good morning, the kettle is on.", target, CloneModel::fast, 42, generated);
    EXPECT_EQ(cloner.state(), VoiceCloner::State::working);
    cloner.generate("Please pass the remote.", target, CloneModel::fast, 7, generated);
    ASSERT_TRUE(waitFor([&] { return finished == 2; }));
    ASSERT_EQ(error, "");
    EXPECT_EQ(cloner.state(), VoiceCloner::State::ready);

    ASSERT_EQ(cloner.takes().size(), 2);
    const Take& newest = cloner.takes()[0];
    EXPECT_EQ(newest.text, "Please pass the remote.");
    EXPECT_EQ(newest.voiceName, "Reader");
    EXPECT_TRUE(newest.verified.has_value());
    EXPECT_TRUE(newest.file.startsWith(cloner.outputDirectory() + "/clone-"));
    const auto take = AudioFileReader::open(newest.file.toStdString());
    EXPECT_NEAR(double(take->frameLength()) / take->format().sampleRate, newest.duration, 0.05);
    EXPECT_TRUE(cloner.status().startsWith("Done: ")) << cloner.status().toStdString();

    // The worker hears a sample (the transcriber would fall back to the local recogniser).
    std::optional<QString> heard;
    cloner.transcribe(library.target(voiceID).samples[0].path, [&](const std::optional<QString>& text, const QString& e) {
        heard = text;
        error = e;
        ++finished;
    });
    ASSERT_TRUE(waitFor([&] { return finished == 3; }));
    ASSERT_TRUE(heard.has_value()) << error.toStdString();
    EXPECT_TRUE(heard->contains("late", Qt::CaseInsensitive)) << heard->toStdString();
}

TEST_F(VoiceClonerWorkerTest, AWorkerThatDiesFailsEveryWaitingRequestOnceAndTheNextStartsAFreshOne) {
    const CloneTarget target = library.target(voiceID);
    std::vector<QString> errors;
    int sent = 0;
    QObject::connect(&cloner, &VoiceCloner::requestSent, [&] {
        if (++sent == 3) cloner.stopWorker();
    });
    for (int i = 0; i < 3; ++i)
        cloner.generate("One more sentence to say.", target, CloneModel::fast, 42 + i,
                        [&](const std::optional<Take>& take, const QString& e) {
                            EXPECT_FALSE(take);
                            errors.push_back(e);
                        });
    ASSERT_TRUE(waitFor([&] { return errors.size() == 3; }));
    // Later events resume nothing a second time.
    waitFor([] { return false; }, 300);
    ASSERT_EQ(errors.size(), 3u);
    for (const QString& e : errors) {
        EXPECT_EQ(e, errors[0]);
        EXPECT_TRUE(e.startsWith(kWorkerStoppedMessage)) << e.toStdString();
    }
    EXPECT_EQ(cloner.errorMessage(), errors[0]);
    EXPECT_FALSE(cloner.workerRunning());

    QString prepared = "not yet";
    cloner.prepare(target, [&](const QString& e) { prepared = e; });
    ASSERT_TRUE(waitFor([&] { return prepared != "not yet"; }));
    EXPECT_EQ(prepared, "");
}

TEST(VoiceClonerTest, MissingRuntimeOrScriptIsASentence) {
    QTemporaryDir dir;
    VoiceClonerOptions options;
    options.supportDirectory = dir.path();
    options.workerScript = dir.filePath("nowhere.py");
    VoiceCloner cloner(options);
    EXPECT_EQ(cloner.state(), VoiceCloner::State::notInstalled);
    QString started = "not yet";
    cloner.startWorkerIfNeeded([&](const QString& e) { started = e; });
    EXPECT_EQ(started, VoiceCloner::scriptMissing());
    QString converted = "not yet";
    cloner.convert("clip.wav", {}, false, [&](const QString&, const QString& e) { converted = e; });
    EXPECT_EQ(converted, VoiceCloner::notSetUpForConversion());
    CloneResult streamed;
    cloner.startStream({}, CloneLatency::balanced, 24000, [&](const CloneResult& r) { streamed = r; });
    EXPECT_EQ(streamed.error, VoiceCloner::notSetUpForStreaming());
}

TEST(VoiceClonerTest, RepliesSplitOrJoinedInReadsAndStrayLinesFromAWorkerProcess) {
    // A stand-in worker over real pipes, to control how its replies are cut.
    QTemporaryDir dir;
    const QString script = dir.filePath("worker.sh");
    ASSERT_TRUE(testfiles::write(script, R"(echo '{"ready":true}'
read first; read second
echo 'not json'; echo '[1,2]'; echo '{"status":"Thinking"}'
echo '{"id":99,"ok":true,"output":""}'
printf '{"id":1,"ok":tr'; sleep 0.3
printf 'ue,"output":"/x.wav","audio_seconds":1.5}\n{"id":2,"ok":false}\n'
sleep 30
)"));
    VoiceClonerOptions options;
    options.supportDirectory = dir.path();
    options.interpreter = "/bin/sh";
    options.workerScript = script;
    VoiceCloner cloner(options);
    std::vector<CloneResult> first, second;
    cloner.startWorkerIfNeeded([&](const QString& error) {
        ASSERT_EQ(error, "");
        cloner.send(QJsonObject{{"op", "prepare"}}, [&](const CloneResult& r) { first.push_back(r); });
        cloner.send(QJsonObject{{"op", "prepare"}}, [&](const CloneResult& r) { second.push_back(r); });
    });
    ASSERT_TRUE(waitFor([&] { return !first.empty() && !second.empty(); }, 20000));
    EXPECT_EQ(cloner.status(), "Thinking");
    ASSERT_TRUE(first[0].ok());
    EXPECT_EQ(first[0].reply->output, "/x.wav");
    EXPECT_EQ(first[0].reply->duration, 1.5);
    EXPECT_EQ(second[0].error, kCloningFailedMessage);
    cloner.stopWorker();
    waitFor([&] { return !cloner.workerRunning(); }, 5000);
    EXPECT_EQ(first.size() + second.size(), 2u);  // the exit resumes nothing twice
}
