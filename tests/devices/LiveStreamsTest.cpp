// Microphone capture and device output against the private sound server: a
// tone fed into the fake microphone arrives at the right pitch and level, a
// tone rendered into "Speakers" is heard on its monitor, devices unloaded
// mid-stream are reported on the main thread, and a microphone-to-speakers
// bridge keeps its delay within bounds for a while (the soak).
#include "devices/AudioDeviceList.h"
#include "devices/PulseTestServer.h"
#include "engine/DeviceOutput.h"
#include "engine/MicCapture.h"
#include "engine/VoiceEngineError.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <thread>
#include <vector>

using namespace parlova;
using parlova::testpulse::PrivateServer;

namespace {

uint32_t idOf(const char* uid) {
    auto id = AudioDeviceList::deviceID(QString(uid));
    return id ? *id : 0x7ffffff0u;
}

// Collects captured samples into memory reserved up front (no allocation on
// the capture thread).
class Collector : public CaptureListener {
public:
    explicit Collector(size_t capacity) : samples(capacity) {}
    void capturedAudio(const float* mono, int frames) noexcept override {
        maxBlock = std::max(maxBlock.load(), frames);
        size_t at = used.load(std::memory_order_relaxed);
        for (int i = 0; i < frames && at < samples.size(); ++i) samples[at++] = mono[i];
        used.store(at, std::memory_order_release);
    }
    std::vector<float> samples;
    std::atomic<size_t> used{0};
    std::atomic<int> maxBlock{0};
};

// A sine on every channel; records the largest slice it was asked for.
class SineSource : public AudioSource {
public:
    SineSource(double hz, double rate, float amplitude) : step_(2 * M_PI * hz / rate), amplitude_(amplitude) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        maxSlice = std::max(maxSlice.load(), frames);
        if (failing) return status::renderError;
        for (int i = 0; i < frames; ++i) {
            const float v = amplitude_ * static_cast<float>(std::sin(phase_));
            phase_ += step_;
            for (int c = 0; c < out.count; ++c) out.data[c][i] = v;
        }
        return status::ok;
    }
    std::atomic<int> maxSlice{0};
    std::atomic<bool> failing{false};

private:
    double phase_ = 0, step_;
    float amplitude_;
};

// parecord from a source into raw mono floats, with the short latency that
// keeps the tail when it is stopped.
class Recorder {
public:
    Recorder(const std::string& source, const std::string& path) : path_(path) {
        process_.start("parecord", {"--latency-msec=20", "-d", QString::fromStdString(source), "--file-format=wav",
                                    "--format=float32le", "--channels=1", "--rate=48000",
                                    QString::fromStdString(path)});
        process_.waitForStarted(3000);
    }
    std::vector<float> stop() {
        process_.terminate();
        process_.waitForFinished(3000);
        return testpulse::readWavFloats(path_);
    }

private:
    QProcess process_;
    std::string path_;
};

// Plays a file into the fake microphone in the background.
class Feeder {
public:
    Feeder(const std::string& file, bool loop) {
        const std::string script = std::string(PARLOVA_SOURCE_DIR) + "/tests/fixtures/pulse-server.sh";
        if (loop)
            process_.start("sh", {"-c", QString::fromStdString("while paplay -d mic_feed " + testpulse::shellQuote(file) + "; do :; done")});
        else
            process_.start("sh", {QString::fromStdString(script), "feed",
                                  QString::fromStdString(PrivateServer::get()->dir()), QString::fromStdString(file)});
        process_.waitForStarted(3000);
    }
    ~Feeder() {
        if (process_.state() != QProcess::NotRunning) {
            process_.kill();
            process_.waitForFinished(3000);
        }
        // The loop's paplay child outlives the shell: stop it by name of its file.
    }
    bool waitDone(int ms) { return process_.waitForFinished(ms); }

private:
    QProcess process_;
};

// The loudest stretch of `length` samples, for measurements that must skip
// the silence before and after a tone.
size_t loudestStart(const std::vector<float>& s, size_t length) {
    size_t best = 0;
    double bestRms = -1;
    for (size_t at = 0; at + length <= s.size(); at += length / 4) {
        const double r = testpulse::rms(s, at, length);
        if (r > bestRms) {
            bestRms = r;
            best = at;
        }
    }
    return best;
}

}  // namespace

TEST(MicCapturePulse, ToneFedIntoTheFakeMicArrivesAtItsPitchAndLevel) {
    PARLOVA_REQUIRE_PULSE();
    const std::string dir = testpulse::tempDir();
    const std::string tone = dir + "/tone.wav";
    ASSERT_TRUE(testpulse::writeWavMono(tone, testpulse::sine(440.0, 1.5, 48000, 0.5f), 48000));

    MicCapture capture(idOf("fake_mic"), 48000);
    EXPECT_EQ(capture.sampleRate(), 48000.0);
    EXPECT_EQ(capture.bridge().cushion(), 960);
    Collector collector(48000 * 6);
    capture.setListener(&collector);
    capture.start();
    {
        Feeder feeder(tone, false);
        EXPECT_TRUE(feeder.waitDone(5000));
    }
    testpulse::pump(300);
    capture.stop();
    const size_t used = collector.used.load();
    std::vector<float> got(collector.samples.begin(), collector.samples.begin() + static_cast<long>(used));
    ASSERT_GT(got.size(), 48000u);
    const size_t at = loudestStart(got, 24000);
    EXPECT_NEAR(testpulse::rms(got, at, 24000), 0.5 / std::sqrt(2.0), 0.05);
    EXPECT_NEAR(testpulse::zeroCrossingHz(got, 48000, at, 24000), 440.0, 2.0);
    EXPECT_LE(collector.maxBlock.load(), MicCapture::kMaxBlockFrames);
    // The bridge was fed too, and trimmed itself since nobody read it.
    EXPECT_LE(capture.bridge().count(), 6 * capture.bridge().cushion());
    EXPECT_GT(capture.bridge().count(), 0);
}

TEST(MicCapturePulse, CapturesAtAnotherRateWhenAsked) {
    PARLOVA_REQUIRE_PULSE();
    MicCapture capture(idOf("fake_mic"), 44100);
    EXPECT_EQ(capture.sampleRate(), 44100.0);
    EXPECT_EQ(capture.bridge().cushion(), 882);
    capture.start();
    EXPECT_TRUE(testpulse::waitUntil([&] { return capture.bridge().count() >= 882; }, 2000));
}

TEST(MicCapturePulse, UnknownOrOutputOnlyDevicesAreRefused) {
    PARLOVA_REQUIRE_PULSE();
    try {
        MicCapture capture(0x7ffffff0u);
        FAIL() << "opened a device that does not exist";
    } catch (const VoiceEngineError& e) {
        EXPECT_EQ(e.errorDescription(), "That audio device isn't available.");
    }
    EXPECT_THROW(MicCapture capture(idOf("speakers")), VoiceEngineError);
}

TEST(DeviceOutputPulse, FormatIsTheDevicesRateInStereo) {
    PARLOVA_REQUIRE_PULSE();
    EXPECT_EQ(DeviceOutput::formatFor(idOf("speakers")), (AudioFormat{48000, 2}));
    auto* server = PrivateServer::get();
    const int module = server->loadModule("module-null-sink", "sink_name=slow rate=22050 channels=1");
    EXPECT_EQ(DeviceOutput::formatFor(idOf("slow")), (AudioFormat{22050, 2}));
    server->unloadModule(module);
    EXPECT_EQ(DeviceOutput::formatFor(0x7ffffff0u), (AudioFormat{48000, 2}));
}

TEST(DeviceOutputPulse, ToneRenderedIntoSpeakersIsHeardOnItsMonitor) {
    PARLOVA_REQUIRE_PULSE();
    const std::string dir = testpulse::tempDir();
    SineSource sine(660.0, 48000, 0.4f);
    DeviceOutput output(idOf("speakers"), DeviceOutput::formatFor(idOf("speakers")), &sine);
    Recorder recorder("speakers.monitor", dir + "/speakers.wav");
    testpulse::pump(200);
    output.start();
    EXPECT_TRUE(output.isRunning());
    // An idle null sink finishes its current (long) block before it asks the
    // new stream for audio: wait for the first request, then play a second.
    ASSERT_TRUE(testpulse::waitUntil([&] { return output.framesRendered() > 0; }, 4000));
    const uint64_t first = output.framesRendered();
    testpulse::pump(1000);
    output.stop();
    // A null sink hands its monitor audio in blocks as long as its latency:
    // give the recorder time to get the last one.
    testpulse::pump(1000);
    const auto got = recorder.stop();
    ASSERT_GT(got.size(), 48000u / 2);
    const size_t at = loudestStart(got, 24000);
    EXPECT_NEAR(testpulse::rms(got, at, 24000), 0.4 / std::sqrt(2.0), 0.04);
    EXPECT_NEAR(testpulse::zeroCrossingHz(got, 48000, at, 24000), 660.0, 2.0);
    EXPECT_GT(sine.maxSlice.load(), 0);
    EXPECT_LE(sine.maxSlice.load(), DeviceOutput::kMaxSliceFrames);
    EXPECT_GT(output.framesRendered() - first, 40000u);  // real-time pace
    EXPECT_LT(output.framesRendered() - first, 60000u);
    EXPECT_EQ(output.renderFailures(), 0u);
}

TEST(DeviceOutputPulse, FailingRenderSourcePlaysSilence) {
    PARLOVA_REQUIRE_PULSE();
    const std::string dir = testpulse::tempDir();
    SineSource sine(660.0, 48000, 0.4f);
    sine.failing = true;
    DeviceOutput output(idOf("headphones"), AudioFormat{48000, 2}, &sine);
    Recorder recorder("headphones.monitor", dir + "/headphones.wav");
    output.start();
    ASSERT_TRUE(testpulse::waitUntil([&] { return output.renderFailures() > 0; }, 4000));
    testpulse::pump(500);
    output.stop();
    testpulse::pump(1000);
    const auto got = recorder.stop();
    ASSERT_GT(got.size(), 4800u);
    EXPECT_LT(testpulse::rms(got), 1e-4);
}

TEST(DeviceOutputPulse, UnknownDeviceAndBadFormatAreRefused) {
    PARLOVA_REQUIRE_PULSE();
    SineSource sine(440, 48000, 0.1f);
    try {
        DeviceOutput output(0x7ffffff0u, AudioFormat{48000, 2}, &sine);
        FAIL() << "opened a device that does not exist";
    } catch (const VoiceEngineError& e) {
        EXPECT_EQ(e.errorDescription(), "That audio device isn't available.");
    }
    try {
        DeviceOutput output(idOf("speakers"), AudioFormat{48000, 0}, &sine);
        FAIL() << "accepted a format without channels";
    } catch (const VoiceEngineError& e) {
        EXPECT_EQ(e.errorDescription().rfind("Couldn't set the output format (error ", 0), 0u);
    }
}

TEST(DeviceOutputPulse, OutputUnloadedMidStreamIsReportedOnTheMainThread) {
    PARLOVA_REQUIRE_PULSE();
    auto* server = PrivateServer::get();
    const int module = server->nullSink("usb_headset", "USB Headset");
    SineSource sine(440, 48000, 0.1f);
    DeviceOutput output(idOf("usb_headset"), AudioFormat{48000, 2}, &sine);
    bool lost = false, failed = false, offMain = false;
    QObject::connect(&output, &DeviceOutput::deviceLost, [&] {
        lost = true;
        offMain = QThread::currentThread() != QCoreApplication::instance()->thread();
    });
    QObject::connect(&output, &DeviceOutput::failed, [&](const QString&) { failed = true; });
    output.start();
    testpulse::pump(200);
    server->unloadModule(module);
    EXPECT_TRUE(testpulse::waitUntil([&] { return lost || failed; }, 3000));
    EXPECT_TRUE(lost);
    EXPECT_FALSE(offMain);
    EXPECT_FALSE(output.isRunning());
}

TEST(MicCapturePulse, MicrophoneUnloadedMidStreamIsReported) {
    PARLOVA_REQUIRE_PULSE();
    auto* server = PrivateServer::get();
    const int sink = server->nullSink("usb_feed", "USB Feed", 1);
    const int source = server->remapSource("usb_feed", "usb_mic", "USB Mic");
    MicCapture capture(idOf("usb_mic"));
    bool lost = false;
    QObject::connect(&capture, &MicCapture::deviceLost, [&] { lost = true; });
    capture.start();
    testpulse::pump(100);
    server->unloadModule(source);
    EXPECT_TRUE(testpulse::waitUntil([&] { return lost; }, 3000));
    server->unloadModule(sink);
}

// Microphone -> bridge -> speakers for PARLOVA_SOAK_SECONDS (20 by default):
// the bridge's backlog, which is the delay it adds, is sampled all along.
TEST(MicBridgePulse, SoakKeepsTheDelayWithinBounds) {
    PARLOVA_REQUIRE_PULSE();
    const char* env = std::getenv("PARLOVA_SOAK_SECONDS");
    const int seconds = env ? std::max(2, std::atoi(env)) : 20;
    const std::string dir = testpulse::tempDir();
    const std::string tone = dir + "/soak.wav";
    ASSERT_TRUE(testpulse::writeWavMono(tone, testpulse::sine(220.0, 5.0, 48000, 0.3f), 48000));
    Feeder feeder(tone, true);

    MicCapture capture(idOf("fake_mic"), 48000);
    MicBridge& bridge = capture.bridge();
    DeviceOutput output(idOf("speakers"), AudioFormat{48000, 2}, &bridge);
    capture.start();
    output.start();
    testpulse::pump(1000);  // priming and the streams settling
    const uint64_t underrunsBefore = bridge.underruns();
    const uint64_t trimsBefore = bridge.trims();
    int maxCount = 0;
    double sum = 0;
    int samples = 0;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < seconds * 1000) {
        testpulse::pump(20);
        const int count = bridge.count();
        maxCount = std::max(maxCount, count);
        sum += count;
        ++samples;
    }
    output.stop();
    capture.stop();
    const double meanMs = sum / samples / 48.0;
    const double maxMs = maxCount / 48.0;
    const uint64_t underruns = bridge.underruns() - underrunsBefore;
    const uint64_t trims = bridge.trims() - trimsBefore;
    std::printf("soak %d s: bridge delay mean %.1f ms, max %.1f ms, underruns %llu, trims %llu\n", seconds, meanMs,
                maxMs, static_cast<unsigned long long>(underruns), static_cast<unsigned long long>(trims));
    EXPECT_LE(maxCount, 6 * bridge.cushion());
    EXPECT_LE(meanMs, 6 * 20.0);
    EXPECT_GT(output.framesRendered(), static_cast<uint64_t>(seconds) * 40000u);
}
