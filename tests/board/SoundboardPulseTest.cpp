// Board sounds and typed speech as another app hears them: live in call mode
// on the private server, "Parlova Mic" recorded by a second client.
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cloning/CloneWorkerSupport.h"
#include "cloning/WorkerProtocol.h"
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "support/Dropouts.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"
#include "voices/VoiceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <optional>

using namespace parlova;
using namespace parlova::testpulse;

namespace {

constexpr int kRate = 48000;
constexpr size_t kWindow = kRate / 10;

// The amplitude of one frequency in a Hann-windowed stretch.
double toneAmplitude(const std::vector<float>& s, size_t from, double hz) {
    double re = 0, im = 0, weights = 0;
    for (size_t i = 0; i < kWindow && from + i < s.size(); ++i) {
        const double w = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(kWindow));
        const double phase = 2 * std::numbers::pi * hz * double(i) / kRate;
        re += w * s[from + i] * std::cos(phase);
        im += w * s[from + i] * std::sin(phase);
        weights += w;
    }
    return 2 * std::hypot(re, im) / weights;
}

std::shared_ptr<SoundBuffer> sineSound(double hz, double seconds, float amplitude) {
    auto sound = std::make_shared<SoundBuffer>();
    sound->left = testaudio::tone(hz, kRate, static_cast<size_t>(seconds * kRate), amplitude);
    sound->right = sound->left;
    return sound;
}

// An engine on the system's server with the board over it, and what the
// board reported failing.
struct Board {
    Board(QSettings* settings, const QString& folder, CloneLibrary* library = nullptr, VoiceCloner* cloner = nullptr)
        : engine(settings, &AudioBackend::system(), BackendJobs::shared()), voices(settings), store(folder),
          board(store, engine, voices, library) {
        if (cloner) engine.setCloner(cloner);
        engine.set(Voice::natural());
        QObject::connect(&board, &Soundboard::failed, [this](const QString& message) { failures << message; });
    }
    std::string failed() const { return failures.join(' ').toStdString(); }
    QStringList failures;
    VoiceEngine engine;
    VoiceStore voices;
    BoardStore store;
    Soundboard board;
};

class SoundboardPulse : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::unique_ptr<QSettings> settings;
    std::optional<VirtualMicModules> mic;
    void SetUp() override {
        PARLOVA_REQUIRE_PULSE();
        settings = std::make_unique<QSettings>(dir.filePath("settings.ini"), QSettings::IniFormat);
        auto* server = PrivateServer::get();
        server->pactl("set-default-source fake_mic");
        server->pactl("set-default-sink speakers");
        mic.emplace(*server);
        ASSERT_TRUE(waitUntil([] { return AudioDeviceList::virtualCableID().has_value(); }, 2000));
    }
    std::string file(const char* name) { return dir.filePath(name).toStdString(); }
    void startCall(VoiceEngine& engine) {
        engine.setCallMode(true);
        engine.toggleLive();
        ASSERT_TRUE(waitUntil([&] { return engine.liveGraph() != nullptr; }, 3000)) << engine.errorMessage().toStdString();
    }
};

}  // namespace

TEST_F(SoundboardPulse, AClipIsHeardInTheCallOverTheDuckedVoiceWhichComesBackAfterIt) {
    VoiceEngine engine(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    engine.set(Voice::natural());
    const std::string saw = file("saw.wav");
    testaudio::writeWav(saw, {double(kRate), {testaudio::tone(150, kRate, 8 * kRate, 0.4f, testaudio::Wave::saw)}});
    MicFeed feed(saw);
    startCall(engine);

    SourceRecorder app(VirtualMic::kSourceName, file("call.wav"));
    pump(1500);
    engine.playSound(sineSound(1000, 1.0, 0.4f), {-6.0, -12.0});
    EXPECT_TRUE(engine.soundsPlaying());
    pump(2500);
    const std::vector<float> heard = app.stop();
    EXPECT_TRUE(waitUntil([&] { return !engine.soundsPlaying(); }, 1000));
    ASSERT_GT(heard.size(), size_t(3 * kRate));

    // Windows where the clip is heard, and the voice in them and around them.
    // Medians, so that one window a loaded machine glitched cannot stand for a level.
    std::vector<double> clip, voiceUnder, voiceBefore, voiceAfter;
    for (size_t from = 0; from + kWindow <= heard.size(); from += kWindow) {
        const double tone = toneAmplitude(heard, from, 1000), voice = toneAmplitude(heard, from, 150);
        if (tone > 0.1) {
            clip.push_back(tone), voiceUnder.push_back(voice);
        } else if (clip.empty() && from > kRate / 2) {
            voiceBefore.push_back(voice);
        } else if (!clip.empty() && from > heard.size() - kRate) {
            voiceAfter.push_back(voice);  // long after the clip, once the duck has let go
        }
    }
    ASSERT_GE(clip.size(), 8u);   // about a second of it
    EXPECT_LE(clip.size(), 11u);  // and not more
    const double before = testaudio::median(voiceBefore);
    EXPECT_NEAR(testaudio::toDb(testaudio::median(clip) / 0.4), -6.0, 1.0);
    EXPECT_NEAR(testaudio::toDb(testaudio::median(voiceUnder) / before), -12.0, 1.5);
    EXPECT_NEAR(testaudio::toDb(testaudio::median(voiceAfter) / before), 0.0, 1.0);
    engine.toggleLive();
}

TEST_F(SoundboardPulse, TypedSpeechReachesTheCallAndAPreviewPlaysOnTheSpeakersInstead) {
    if (!testaudio::haveTool("espeak-ng")) GTEST_SKIP() << "espeak-ng is not installed";
    QSettings::setDefaultFormat(QSettings::IniFormat);
    Board b(settings.get(), dir.filePath("Board"));
    startCall(b.engine);  // the microphone is silent: whatever the call hears is the board

    SourceRecorder app(VirtualMic::kSourceName, file("call.wav"));
    SourceRecorder speakers("speakers.monitor", file("speakers.wav"));
    pump(300);
    ASSERT_TRUE(b.board.say("Hello from the keyboard, everyone."));
    EXPECT_FALSE(b.board.status().isEmpty());
    ASSERT_TRUE(waitUntil([&] { return b.engine.soundsPlaying(); }, 5000)) << b.failed();
    EXPECT_TRUE(b.board.status().isEmpty());
    ASSERT_TRUE(waitUntil([&] { return !b.engine.soundsPlaying(); }, 8000));
    const std::vector<float> call = app.stop(), heardOnSpeakers = speakers.stop();
    EXPECT_GT(testaudio::toDb(testaudio::rms(call, testaudio::loudestStart(call, kRate / 2), kRate / 2)), -30.0);
    EXPECT_GT(testaudio::fundamental(call, kRate, testaudio::loudestStart(call, kRate / 2), kRate / 2), 60.0);
    // "Hear myself" is off: nothing of the call reaches the speakers.
    EXPECT_LT(testaudio::toDb(testaudio::peak(heardOnSpeakers)), -50.0);

    // A preview goes to the speakers, not into the call.
    SourceRecorder app2(VirtualMic::kSourceName, file("call2.wav"));
    SourceRecorder speakers2("speakers.monitor", file("speakers2.wav"));
    b.board.previewVoice(Voice::builtIns().front());
    ASSERT_TRUE(waitUntil([&] { return b.engine.soundsPlaying(); }, 5000)) << b.failed();
    ASSERT_TRUE(waitUntil([&] { return !b.engine.soundsPlaying(); }, 8000));
    EXPECT_LT(testaudio::toDb(testaudio::peak(app2.stop())), -50.0);
    const auto previewed = speakers2.stop();
    EXPECT_GT(testaudio::toDb(testaudio::rms(previewed, testaudio::loudestStart(previewed, kRate / 2), kRate / 2)), -30.0);
    EXPECT_TRUE(b.failures.isEmpty()) << b.failed();
    b.engine.toggleLive();
}

TEST_F(SoundboardPulse, ACloneSaysTheTypedSentenceIntoTheCallAndAWorkerFailureIsASentence) {
    if (const QString missing = clonetest::workerMissing(); !missing.isEmpty()) GTEST_SKIP() << missing.toStdString();
    CloneLibrary library(dir.filePath("support/ClonedVoices"), settings.get());
    const QUuid me = clonetest::spokenVoice(library, "Me", 6, dir.path());
    ASSERT_FALSE(me.isNull());
    VoiceCloner cloner(clonetest::testWorkerOptions(dir.filePath("support")));
    Board b(settings.get(), dir.filePath("Board"), &library, &cloner);
    startCall(b.engine);

    SourceRecorder app(VirtualMic::kSourceName, file("call.wav"));
    ASSERT_TRUE(b.board.say("I lost my voice, so my keyboard talks for me.", {{}, me}));
    EXPECT_TRUE(b.board.status().contains("Me"));
    ASSERT_TRUE(clonetest::waitFor([&] { return b.engine.soundsPlaying() || !b.failures.isEmpty(); })) << b.failed();
    ASSERT_TRUE(b.failures.isEmpty()) << b.failed();
    EXPECT_FALSE(cloner.takes().isEmpty());  // the take shows on the cloned voice's page too
    ASSERT_TRUE(waitUntil([&] { return !b.engine.soundsPlaying(); }, 15000));
    const std::vector<float> call = app.stop();
    EXPECT_GT(testaudio::rms(call, testaudio::loudestStart(call, kRate / 2), kRate / 2), 0.01);

    // The worker dies during the next sentence: a sentence, and the board plays on.
    ASSERT_TRUE(b.board.say("This one never arrives.", {{}, me}));
    ASSERT_TRUE(clonetest::waitFor([&] { return cloner.workerRunning(); }, 30000));
    cloner.stopWorker();
    ASSERT_TRUE(clonetest::waitFor([&] { return !b.failures.isEmpty(); }, 30000));
    EXPECT_TRUE(b.failures.first().startsWith(kWorkerStoppedMessage)) << b.failures.first().toStdString();
    EXPECT_TRUE(b.board.status().isEmpty());
    b.engine.playSound(sineSound(440, 0.3, 0.3f), {});
    EXPECT_TRUE(b.engine.soundsPlaying());
    b.engine.toggleLive();
}

TEST_F(SoundboardPulse, RapidPlaysLeaveTheVoiceUnbrokenStopWithLiveAndPreviewWithoutIt) {
    Board b(settings.get(), dir.filePath("Board"));
    const std::string clip = file("beep.wav");
    testaudio::writeWav(clip, {double(kRate), {testaudio::tone(1200, kRate, kRate * 3 / 10, 0.2f)}});
    // Quiet and without ducking, so that the voice's level is what the break count sees.
    BoardEntry entry = b.store.addClip(QString::fromStdString(clip));
    entry.levelDb = -20;
    entry.duckDb = 0;
    b.store.update(entry);
    const std::string tone = file("tone.wav");
    testaudio::writeWav(tone, {double(kRate), {testaudio::tone(440, kRate, 10 * kRate, 0.4f)}});
    MicFeed feed(tone);
    startCall(b.engine);

    SourceRecorder app(VirtualMic::kSourceName, file("call.wav"));
    pump(500);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(b.board.play(entry.id));
        pump(20);
    }
    pump(800);
    const std::vector<float> heard = app.stop();
    EXPECT_TRUE(b.failures.isEmpty()) << b.failed();
    EXPECT_EQ(analysis::countDropouts(heard, kRate), 0);
    EXPECT_GT(toneAmplitude(heard, kRate, 1200), 0.01);
    ASSERT_TRUE(waitUntil([&] { return !b.engine.soundsPlaying(); }, 2000));

    // Live stopping takes the sound playing with it.
    b.board.play(entry.id);
    EXPECT_TRUE(b.engine.soundsPlaying());
    b.engine.toggleLive();
    EXPECT_TRUE(waitUntil([&] { return !b.engine.soundsPlaying(); }, 1000));

    // Without live the clip is a preview on the speakers.
    SourceRecorder speakers("speakers.monitor", file("speakers.wav"));
    pump(200);
    ASSERT_TRUE(b.board.play(entry.id));
    pump(800);
    const std::vector<float> previewed = speakers.stop();
    EXPECT_NEAR(testaudio::toDb(toneAmplitude(previewed, testaudio::loudestStart(previewed, kWindow), 1200) / 0.2),
                -20.0, 1.0);  // at the entry's level
    EXPECT_TRUE(b.failures.isEmpty()) << b.failed();
}
