// The sound-server backend's streams against the private server (that audio
// flows through them is shown by the live-mode tests): refusals, devices
// unloaded mid-stream, and a microphone-to-speakers bridge that keeps its
// delay within bounds without running dry (the soak).
#include "devices/pulse/PulseBackend.h"
#include "engine/MicCapture.h"
#include "common/VoiceEngineError.h"
#include "support/MemorySource.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>

using namespace parlova;
using namespace parlova::testpulse;
using testaudio::SineSource;
using testaudio::TempFolder;
namespace ta = parlova::testaudio;

namespace {

class Discard : public CaptureSink {
public:
    void capturedAudio(const float*, int) noexcept override {}
};

AudioBackend& backend() { return AudioBackend::system(); }

DeviceEntry entry(const std::string& uid) {
    const auto table = backend().snapshot();
    if (!table) return {};
    const DeviceEntry* e = table->find(deviceId(uid));
    return e ? *e : DeviceEntry{};
}

std::string refusal(const std::function<void()>& open) { return testaudio::errorOf(open, "(opened)"); }

}  // namespace

TEST(LiveStreamsPulse, UnknownDevicesAndBadFormatsAreRefused) {
    PARLOVA_REQUIRE_PULSE();
    SineSource sine(440, 48000, 0.1f);
    Discard collector;
    const std::string unavailable = "That audio device isn't available.";
    EXPECT_EQ(refusal([&] { backend().openCapture(entry("speakers"), 48000, 0.01, collector, {}); }), unavailable);
    EXPECT_EQ(refusal([&] { backend().openOutput(DeviceEntry{}, AudioFormat{48000, 2}, sine, 0.02, {}); }),
              unavailable);
    EXPECT_EQ(refusal([&] { backend().openOutput(entry("speakers"), AudioFormat{48000, 0}, sine, 0.02, {}); })
                  .rfind("Couldn't set the output format (error ", 0), 0u);
}

TEST(LiveStreamsPulse, DevicesUnloadedMidStreamAreReportedOnce) {
    PARLOVA_REQUIRE_PULSE();
    auto* server = PrivateServer::get();
    const int headset = server->nullSink("usb_headset", "USB Headset");
    const int feed = server->nullSink("usb_feed", "USB Feed", 1);
    const int mic = server->remapSource("usb_feed", "usb_mic", "USB Mic");
    std::atomic<int> lost{0}, failed{0};
    StreamFaults faults{[&] { ++lost; }, [&](ErrorCode, const std::string&) { ++failed; }};
    SineSource sine(440, 48000, 0.1f);
    Discard collector;
    auto output = backend().openOutput(entry("usb_headset"), AudioFormat{48000, 2}, sine, 0.02, faults);
    auto capture = backend().openCapture(entry("usb_mic"), 48000, 0.01, collector, faults);
    output->start();
    capture->start();
    pump(200);
    server->unloadModule(headset);
    server->unloadModule(mic);
    EXPECT_TRUE(waitUntil([&] { return lost.load() == 2; }, 3000));
    pump(200);
    EXPECT_EQ(lost.load(), 2);
    EXPECT_EQ(failed.load(), 0);
    server->unloadModule(feed);
}

// Microphone -> bridge -> speakers for PARLOVA_SOAK_SECONDS (20 by default):
// the bridge's backlog, which is the delay it adds, is sampled all along, and
// the output never finds the bridge empty.
TEST(MicBridgePulse, SoakKeepsTheDelayWithinBoundsWithoutRunningDry) {
    PARLOVA_REQUIRE_PULSE();
    const char* env = std::getenv("PARLOVA_SOAK_SECONDS");
    const int seconds = env ? std::max(2, std::atoi(env)) : 20;
    TempFolder dir;
    ASSERT_TRUE(ta::writeWav(dir.file("soak.wav"), ta::spread(ta::tone(220.0, 48000, 240000, 0.3f), 48000)));
    MicFeed feed(dir.file("soak.wav"), true);

    MicCapture capture(backend(), entry("fake_mic"), 48000, {});
    MicBridge& bridge = capture.bridge();
    auto output = backend().openOutput(entry("speakers"), AudioFormat{48000, 2}, bridge, 0.02, {});
    capture.start();
    output->start();
    pump(1000);  // priming and the streams settling
    const uint64_t underrunsBefore = bridge.underruns();
    const uint64_t trimsBefore = bridge.trims();
    int maxCount = 0;
    double sum = 0;
    int samples = 0;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < seconds * 1000) {
        pump(20);
        const int count = bridge.count();
        maxCount = std::max(maxCount, count);
        sum += count;
        ++samples;
    }
    output->stop();
    capture.stop();
    const uint64_t underruns = bridge.underruns() - underrunsBefore;
    const uint64_t trims = bridge.trims() - trimsBefore;
    std::printf("soak %d s: bridge delay mean %.1f ms, max %.1f ms, underruns %llu, trims %llu\n", seconds,
                sum / samples / 48.0, maxCount / 48.0, static_cast<unsigned long long>(underruns),
                static_cast<unsigned long long>(trims));
    EXPECT_EQ(underruns, 0u);
    // Two clocks from one server drift apart slowly: a trim now and then, not a stream of them.
    EXPECT_LE(trims, static_cast<uint64_t>(1 + seconds / 30));
    EXPECT_LE(sum / samples, 4.0 * bridge.cushion());
}
