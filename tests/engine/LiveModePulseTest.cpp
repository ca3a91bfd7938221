// Live and call mode against a private sound server: what comes out of the
// output device and the virtual mic is recorded by another client and measured.
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QProcess>
#include <QTimer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>

using namespace parlova;
using namespace parlova::testpulse;

namespace {

constexpr int kRate = 48000;

// A 150 Hz sawtooth long enough to outlast each measurement (one second
// repeated: 320-sample periods tile seamlessly).
std::string sawtoothFile(const std::string& dir, int seconds = 8) {
    const std::string path = dir + "/saw.wav";
    const auto second = testaudio::tone(150, kRate, static_cast<size_t>(1.0 * kRate), 0.4f, testaudio::Wave::saw);
    std::vector<float> all;
    for (int i = 0; i < seconds; ++i) all.insert(all.end(), second.begin(), second.end());
    testaudio::writeWav(path, {double(kRate), {all}});
    return path;
}

Voice steadyVoice(float pitchCents) {
    Voice v = Voice::natural();
    v.pitch = pitchCents;
    return v;
}

class LiveModePulse : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::unique_ptr<QSettings> settings;
    void SetUp() override {
        PARLOVA_REQUIRE_PULSE();
        settings = std::make_unique<QSettings>(dir.filePath("settings.ini"), QSettings::IniFormat);
        PrivateServer::get()->pactl("set-default-source fake_mic");
        PrivateServer::get()->pactl("set-default-sink speakers");
    }
    std::string file(const char* name) { return dir.filePath(name).toStdString(); }
    double measuredHz(const std::vector<float>& s) {
        // The last second but the final tenth (the recorder's last buffer may be cut).
        if (s.size() < static_cast<size_t>(1.3 * kRate)) return 0;
        return testaudio::fundamental(s, kRate, s.size() - static_cast<size_t>(1.1 * kRate), kRate);
    }
};

pid_t serverPid() {
    std::ifstream in(PrivateServer::get()->dir() + "/pulseaudio.pid");
    pid_t pid = 0;
    in >> pid;
    return pid;
}

}  // namespace

TEST_F(LiveModePulse, TheOutputCarriesTheVoiceAndBypassNeedsNoRestart) {
    VoiceEngine engine(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    engine.set(steadyVoice(650));
    MicFeed feed(sawtoothFile(dir.path().toStdString()));
    engine.toggleLive();
    ASSERT_TRUE(waitUntil([&] { return engine.liveGraph() != nullptr; }, 3000)) << engine.errorMessage().toStdString();
    EXPECT_TRUE(engine.isLive());

    SourceRecorder shifted("speakers.monitor", file("shifted.wav"));
    pump(3000);
    EXPECT_NEAR(testaudio::cents(measuredHz(shifted.stop()), 218.35), 0.0, 5.0);
    EXPECT_GT(engine.meter().level().rmsDb, -35.0f);
    EXPECT_GT(engine.detectedPitch(), 140.0f);

    const LiveGraph* graph = engine.liveGraph();
    engine.setBypass(true);
    SourceRecorder natural("speakers.monitor", file("natural.wav"));
    pump(3000);
    EXPECT_NEAR(testaudio::cents(measuredHz(natural.stop()), 150.0), 0.0, 5.0);
    EXPECT_EQ(engine.liveGraph(), graph);  // the same route kept running

    engine.toggleLive();
    EXPECT_EQ(engine.liveGraph(), nullptr);
    EXPECT_FALSE(engine.isLive());
    pump(100);
    EXPECT_EQ(engine.meter().level().rmsDb, LevelMonitor::kFloorDb);
}

TEST_F(LiveModePulse, CallModeFeedsTheVirtualMicAndGivesTheRealMicBack) {
    VirtualMicModules mic(*PrivateServer::get());
    ASSERT_TRUE(waitUntil([] { return AudioDeviceList::virtualCableID().has_value(); }, 2000));
    VoiceEngine engine(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    engine.set(steadyVoice(-400));
    engine.setCallMode(true);
    MicFeed feed(sawtoothFile(dir.path().toStdString()));
    engine.toggleLive();
    ASSERT_TRUE(waitUntil([&] { return engine.liveGraph() != nullptr; }, 3000)) << engine.errorMessage().toStdString();
    EXPECT_TRUE(engine.liveIsCall());
    EXPECT_TRUE(waitUntil([] { return AudioDeviceList::defaultInputID() == AudioDeviceList::virtualCableID(); }, 3000));
    EXPECT_EQ(settings->value(VoiceEngine::kMicBeforeCallModeKey).toString(), "fake_mic");

    // Another app recording the system microphone hears the changed voice.
    SourceRecorder app(VirtualMic::kSourceName, file("call.wav"));
    pump(3000);
    EXPECT_NEAR(testaudio::cents(measuredHz(app.stop()), 150.0), -400.0, 5.0);

    engine.toggleLive();
    EXPECT_TRUE(waitUntil([&] { return !settings->contains(VoiceEngine::kMicBeforeCallModeKey); }, 3000));
    EXPECT_EQ(AudioDeviceList::defaultInputID(), std::optional<uint32_t>(deviceId("fake_mic")));
}

TEST_F(LiveModePulse, AnOutputUnpluggedMidLiveStopsLiveWithTheDisconnectSentence) {
    auto* server = PrivateServer::get();
    const int usb = server->nullSink("usb_headset", "USB Headset");
    VoiceEngine engine(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    engine.setOutputUID("usb_headset", false);
    engine.toggleLive();
    ASSERT_TRUE(waitUntil([&] { return engine.liveGraph() != nullptr; }, 3000)) << engine.errorMessage().toStdString();
    server->unloadModule(usb);
    ASSERT_TRUE(waitUntil([&] { return !engine.isLive(); }, 3000));
    EXPECT_EQ(engine.errorMessage(), kDisconnectedMessage);
    EXPECT_EQ(engine.liveGraph(), nullptr);
}

TEST_F(LiveModePulse, RecordingUsesTheMutedLiveInputAndBecomesTheClip) {
    VoiceEngine engine(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    MicFeed feed(sawtoothFile(dir.path().toStdString()));
    SourceRecorder speakers("speakers.monitor", file("speakers.wav"));
    engine.toggleRecording();
    ASSERT_TRUE(engine.isRecording());
    ASSERT_TRUE(waitUntil([&] { return engine.liveGraph() != nullptr; }, 3000));
    // The test server's idle sinks take a moment before a new stream gets audio.
    ASSERT_TRUE(waitUntil([&] { return engine.liveGraph()->micBridge()->count() > 0; }, 4000));
    pump(1500);
    EXPECT_FALSE(engine.isLive());
    EXPECT_NE(engine.liveGraph(), nullptr);
    engine.toggleRecording();
    EXPECT_EQ(engine.liveGraph(), nullptr);
    // The capture stream takes a moment to start delivering.
    EXPECT_GT(engine.clipDuration(), 1.3);
    EXPECT_LT(engine.clipDuration(), 1.6);
    EXPECT_LT(testaudio::rms(speakers.stop()), 1e-4);  // nothing was heard while only recording

    // A recording with a length counts its own audio, not the last one's.
    engine.toggleRecording();
    engine.stopRecordingAfter(0.5);
    ASSERT_TRUE(waitUntil([&] { return !engine.isRecording(); }, 8000));
    EXPECT_GE(engine.clipDuration(), 0.5);
    EXPECT_LT(engine.clipDuration(), 0.6);
}

// The command-line tool in call mode, ended by SIGTERM and by SIGKILL: the real
// microphone comes back at once, or at the next start.
TEST_F(LiveModePulse, SystemMicIsRestoredAfterSigtermAndAfterAHardKill) {
    VirtualMicModules mic(*PrivateServer::get());
    auto runCli = [&](int signal) {
        QProcess cli;
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", dir.filePath("config"));
        cli.setProcessEnvironment(env);
        cli.start(PARLOVA_CLI_PATH, {"live", "--voice", "Natural", "--call"});
        EXPECT_TRUE(waitUntil([&] { return AudioDeviceList::defaultInputID() == AudioDeviceList::virtualCableID(); },
                              5000))
            << cli.readAllStandardError().toStdString();
        ::kill(static_cast<pid_t>(cli.processId()), signal);
        cli.waitForFinished(5000);
        return cli.exitCode();
    };
    EXPECT_EQ(runCli(SIGTERM), 0);
    EXPECT_EQ(AudioDeviceList::defaultInputID(), std::optional<uint32_t>(deviceId("fake_mic")));

    runCli(SIGKILL);
    EXPECT_EQ(AudioDeviceList::defaultInputID(), AudioDeviceList::virtualCableID());  // left behind
    QSettings cliSettings(dir.filePath("config/Parlova/Parlova.conf"), QSettings::IniFormat);
    EXPECT_EQ(cliSettings.value(VoiceEngine::kMicBeforeCallModeKey).toString(), "fake_mic");
    VoiceEngine nextStart(&cliSettings, &AudioBackend::system(), BackendJobs::shared());
    EXPECT_TRUE(waitUntil([&] { return !cliSettings.contains(VoiceEngine::kMicBeforeCallModeKey); }, 3000));
    EXPECT_EQ(AudioDeviceList::defaultInputID(), std::optional<uint32_t>(deviceId("fake_mic")));
}

// A frozen sound server: the window's event loop keeps turning while live
// starts, and the start completes once the server runs again.
TEST_F(LiveModePulse, AFrozenServerNeverBlocksTheMainThread) {
    const pid_t pid = serverPid();
    ASSERT_GT(pid, 0);
    VoiceEngine engine(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    timer.start(10);
    ::kill(pid, SIGSTOP);
    engine.toggleLive();
    pump(1500);
    const int ticksWhileFrozen = ticks;
    const bool stillStarting = engine.isStartingLive();
    ::kill(pid, SIGCONT);
    EXPECT_GT(ticksWhileFrozen, 50);  // about 150 when nothing blocks
    EXPECT_TRUE(stillStarting);
    EXPECT_TRUE(waitUntil([&] { return engine.liveGraph() != nullptr; }, 5000)) << engine.errorMessage().toStdString();
    engine.toggleLive();
}

TEST_F(LiveModePulse, LowDelayRebuildsTheRouteShorterAndIsRemembered) {
    auto engine = std::make_unique<VoiceEngine>(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    engine->set(steadyVoice(650));
    MicFeed feed(sawtoothFile(dir.path().toStdString(), 12));
    engine->toggleLive();
    ASSERT_TRUE(waitUntil([&] { return engine->liveGraph() != nullptr; }, 3000)) << engine->errorMessage().toStdString();
    const double normalStage = engine->liveGraph()->stage().latencySeconds();

    engine->setLowDelay(true);
    ASSERT_TRUE(waitUntil(
        [&] { return engine->liveGraph() != nullptr && engine->liveGraph()->stage().latencySeconds() < normalStage; },
        3000))
        << engine->errorMessage().toStdString();
    // The shorter block still lands the voice on its pitch.
    SourceRecorder shifted("speakers.monitor", file("low.wav"));
    pump(3000);
    EXPECT_NEAR(testaudio::cents(measuredHz(shifted.stop()), 218.35), 0.0, 5.0);
    engine->toggleLive();

    engine = std::make_unique<VoiceEngine>(settings.get(), &AudioBackend::system(), BackendJobs::shared());
    EXPECT_TRUE(engine->lowDelay());
}
