// The render path must never touch the heap: the capture side (fan-out, the
// recording tap, the bridge write) and the output side (bridge read, the
// clean-mic stage with its denoiser, the whole chain, the meter tap, the
// volume ramp, the monitor bridge) of a live route at both delay settings, and
// the rate conversion of clip playback, run with allocation counting on. The route renders on a
// thread of its own, as on an audio thread, so that a library which sets
// itself up per thread on first use is caught too.
#include "engine/CleanMic.h"
#include "engine/LiveGraph.h"
#include "media/RateConverter.h"
#include "support/FakeBackend.h"
#include "support/MemorySource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

// The sanitizers bring their own allocator: counting only runs in plain builds.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define PARLOVA_COUNT_ALLOCATIONS 1
#endif

namespace {
[[maybe_unused]] thread_local bool counting = false;
std::atomic<long> allocations{0};

[[maybe_unused]] void* counted(std::size_t size) {
    if (counting) allocations.fetch_add(1);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
}  // namespace

#ifdef PARLOVA_COUNT_ALLOCATIONS
void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

// Also catch C allocations (the shifter library and the Rust shim allocate with malloc).
extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_calloc(std::size_t, std::size_t);
extern "C" void* __libc_realloc(void*, std::size_t);
extern "C" void* malloc(std::size_t size) {
    if (counting) allocations.fetch_add(1);
    return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t n, std::size_t size) {
    if (counting) allocations.fetch_add(1);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, std::size_t size) {
    if (counting) allocations.fetch_add(1);
    return __libc_realloc(p, size);
}
#endif

using namespace parlova;

namespace {
DeviceEntry device(uint32_t id, bool input) {
    DeviceEntry e;
    e.id = id;
    e.uid = e.name = "device";
    (input ? e.inputChannels : e.outputChannels) = 2;
    return e;
}
}  // namespace

TEST(RenderAllocation, LiveRouteAndPlaybackConversionNeverAllocate) {
#ifndef PARLOVA_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocation counting is off under the sanitizers";
#endif
    Voice voice = Voice::builtIns()[0];  // every stage active: shift, vibrato, grain, EQ, reverb, tremolo
    voice.targetPitch = 200;
    // The standard setting and the low-delay one, which changes the shifter's block and every buffer.
    const std::pair<ShifterTiming, RouteBuffering> settings[] = {{ShifterTiming::normal(), RouteBuffering::normal()},
                                                                 {ShifterTiming::low(), RouteBuffering::low()}};
    for (const auto& [timing, buffering] : settings) {
        testaudio::FakeBackend backend([] { return DeviceTable{}; });
        LiveRoute route{device(1, true), device(2, false), device(3, false), true};
        std::atomic<int> recorded{0};
        LiveGraph graph(backend, route,
                        CleanMicStage::wrap(EffectVoiceStage::factory(voice, timing), std::make_shared<CleanMicControl>()),
                        [&](const float*, int frames) { recorded += frames; }, [](const float*, int) {}, {}, buffering);
        ASSERT_EQ(backend.outputs.size(), 2u);  // the output, then the monitor
        graph.start();
        graph.setAudible(true);

        std::vector<float> mic(480), left(480), right(480);
        for (size_t i = 0; i < mic.size(); ++i) mic[i] = 0.3f * static_cast<float>(std::sin(0.02 * i));
        BufferList list;
        list.count = 2;
        list.data[0] = left.data();
        list.data[1] = right.data();
        std::vector<float> fileInput(44100);
        testaudio::MemorySource file({fileInput});
        auto converted = RateConvertingSource::create(&file, 1, 44100, kChainSampleRate);
        ASSERT_TRUE(converted);
        BufferList one;
        one.count = 1;
        one.data[0] = left.data();

        allocations = 0;
        std::thread audio([&] {
            counting = true;
            for (int block = 0; block < 200; ++block) {
                graph.mic().capturedAudio(mic.data(), static_cast<int>(mic.size()));
                graph.chain()->modulate(block * 0.01);
                backend.outputs[0]->pull(list, 480);
                backend.outputs[1]->pull(list, 480);
                converted->pull(one, 480);
            }
            counting = false;
        });
        audio.join();
        EXPECT_EQ(allocations.load(), 0) << timing.blockSeconds;
        graph.stop();
    }
}
