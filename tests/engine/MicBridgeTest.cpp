// The microphone bridge's numbers: cushion, capacity, priming, trim from six
// cushions to two, mono mix-down, fan-out, and its behaviour between threads.
#include "engine/MicBridge.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <numeric>
#include <thread>
#include <vector>

using parlova::BufferList;
using parlova::MicBridge;

namespace {

// Writes frames numbered from `start` so reads can tell exactly which survived.
void writeRamp(MicBridge& bridge, int start, int frames) {
    std::vector<float> data(static_cast<size_t>(frames));
    std::iota(data.begin(), data.end(), static_cast<float>(start));
    bridge.write(data.data(), 1, frames);
}

std::vector<float> readMono(MicBridge& bridge, int frames) {
    std::vector<float> out(static_cast<size_t>(frames), -99.0f);
    BufferList list;
    list.count = 1;
    list.data[0] = out.data();
    bridge.read(list, frames);
    return out;
}

bool allZero(const std::vector<float>& v) {
    for (float x : v)
        if (x != 0.0f) return false;
    return true;
}

}  // namespace

TEST(MicBridgePriming, ReadBeforeAnyWriteIsSilentAndUnprimed) {
    MicBridge bridge(48000, 0.02);
    EXPECT_TRUE(allZero(readMono(bridge, 256)));
    EXPECT_FALSE(bridge.isPrimed());
    EXPECT_EQ(bridge.underruns(), 0u);
}

TEST(MicBridgePriming, WaitsForOneFullCushion) {
    MicBridge bridge(48000, 0.02);
    writeRamp(bridge, 1, 959);
    EXPECT_TRUE(allZero(readMono(bridge, 256)));
    EXPECT_EQ(bridge.count(), 959);  // nothing consumed while unprimed
    writeRamp(bridge, 960, 1);
    auto out = readMono(bridge, 256);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(out[static_cast<size_t>(i)], static_cast<float>(i + 1));
    EXPECT_TRUE(bridge.isPrimed());
    EXPECT_EQ(bridge.count(), 960 - 256);
}

TEST(MicBridgePriming, UnderrunZeroFillsAndRearmsPriming) {
    MicBridge bridge(48000, 0.02);
    writeRamp(bridge, 1, 1000);
    auto out = readMono(bridge, 1024);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(out[static_cast<size_t>(i)], static_cast<float>(i + 1));
    for (int i = 1000; i < 1024; ++i) ASSERT_EQ(out[static_cast<size_t>(i)], 0.0f);
    EXPECT_FALSE(bridge.isPrimed());
    EXPECT_EQ(bridge.underruns(), 1u);
    // After the underrun, less than a cushion is not enough again.
    writeRamp(bridge, 5000, 500);
    EXPECT_TRUE(allZero(readMono(bridge, 100)));
    writeRamp(bridge, 5500, 460);
    out = readMono(bridge, 100);
    EXPECT_EQ(out[0], 5000.0f);
}

// The reader trims a backlog above six cushions to the newest two; one write
// keeps at most its first 16384 frames, and no more than the ring has room for.
TEST(MicBridgeTrim, BacklogAboveSixCushionsKeepsTheNewestTwo) {
    struct Case {
        double rate, seconds;
        std::vector<std::pair<int, int>> writes;  // ramp start, frames
        int delivered;       // frames the next read returns
        int trims;
        float front, back;   // of what it returns
    };
    const Case cases[] = {
        {48000, 0.02, {{0, 6000}}, 1920, 1, 6000 - 1920, 5999},
        {48000, 0.02, {{0, 5760}}, 5760, 0, 0, 5759},  // exactly six cushions are kept
        {48000, 0.02, {{0, 5760}, {5760, 1}}, 1920, 1, 5761 - 1920, 5760},
        {48000, 0.02, {{0, 20000}}, 1920, 1, 16384 - 1920, 16383},  // frames from 16384 on dropped
        {8000, 0.5, {{0, 16000}, {16000, 16000}}, 8000, 1, 24000, 31999},
        {1000, 1.0, {{0, 12000}}, 2000, 1, 6000, 7999},  // more than the ring's room in one write
    };
    for (const auto& c : cases) {
        MicBridge bridge(c.rate, c.seconds);
        for (auto [start, frames] : c.writes) writeRamp(bridge, start, frames);
        const auto out = readMono(bridge, c.delivered);
        EXPECT_EQ(bridge.trims(), static_cast<uint64_t>(c.trims)) << c.rate << " " << c.writes.back().second;
        EXPECT_EQ(out.front(), c.front);
        EXPECT_EQ(out.back(), c.back);
        EXPECT_EQ(bridge.count(), 0);
        EXPECT_EQ(bridge.underruns(), 0u);
    }
}

TEST(MicBridgeMixDown, StereoInterleavedOppositeSamplesCancel) {
    MicBridge bridge(48000, 0.02);
    std::vector<float> stereo;
    for (int i = 0; i < 960; ++i) {
        stereo.push_back(1.0f);
        stereo.push_back(-1.0f);
    }
    bridge.write(stereo.data(), 2, 960);
    auto out = readMono(bridge, 960);
    EXPECT_TRUE(allZero(out));
    EXPECT_EQ(bridge.count(), 0);
}

TEST(MicBridgeMixDown, NonInterleavedBuffersAreAveraged) {
    MicBridge bridge(48000, 0.02);
    std::vector<float> left(960, 0.5f), right(960, 0.5f);
    BufferList in;
    in.count = 2;
    in.data[0] = left.data();
    in.data[1] = right.data();
    bridge.write(in, 960);
    auto out = readMono(bridge, 960);
    for (float x : out) ASSERT_FLOAT_EQ(x, 0.5f);

    std::vector<float> a(960, 0.9f), b(960, 0.3f), c(960, 0.0f);
    BufferList three;
    three.count = 3;
    three.data[0] = a.data();
    three.data[1] = b.data();
    three.data[2] = c.data();
    bridge.write(three, 960);
    out = readMono(bridge, 960);
    for (float x : out) ASSERT_NEAR(x, 0.4f, 1e-6);
}

TEST(MicBridgeMixDown, EmptyWritesAndReadsDoNothing) {
    MicBridge bridge(48000, 0.02);
    BufferList none;
    bridge.write(none, 512);
    bridge.write(nullptr, 1, 512);
    EXPECT_EQ(bridge.count(), 0);
    writeRamp(bridge, 0, 960);
    BufferList noData;
    noData.count = 1;  // a buffer without memory
    bridge.read(noData, 256);
    EXPECT_EQ(bridge.count(), 960);
    EXPECT_FALSE(bridge.isPrimed());
}

TEST(MicBridgeFanOut, MonoIsCopiedToEveryChannel) {
    MicBridge bridge(48000, 0.02);
    writeRamp(bridge, 1, 1200);
    std::vector<float> l(300, -1.0f), r(300, -1.0f), c(300, -1.0f);
    BufferList out;
    out.count = 3;
    out.data[0] = l.data();
    out.data[1] = r.data();
    out.data[2] = c.data();
    EXPECT_EQ(bridge.pull(out, 300), parlova::status::ok);
    EXPECT_EQ(l, r);
    EXPECT_EQ(l, c);
    EXPECT_EQ(l[0], 1.0f);
    EXPECT_EQ(l[299], 300.0f);
    // Silence fans out too.
    bridge.reset();
    bridge.pull(out, 300);
    for (size_t i = 0; i < 300; ++i) ASSERT_TRUE(l[i] == 0.0f && r[i] == 0.0f && c[i] == 0.0f);
}

TEST(MicBridgeWrap, ReadsAcrossTheEndOfTheRingStayInOrder) {
    MicBridge bridge(1000, 1.0);  // capacity 8000, cushion 1000
    int next = 0;
    int expected = 0;
    for (int round = 0; round < 40; ++round) {
        writeRamp(bridge, next, 1700);
        next += 1700;
        auto out = readMono(bridge, 1700);
        for (float x : out) {
            if (x == 0.0f && expected != 0) continue;  // priming silence
            ASSERT_EQ(x, static_cast<float>(expected));
            ++expected;
        }
    }
    EXPECT_GT(expected, 40 * 1700 - 2000);
}

// Two threads at the same nominal rate: a writer in 10 ms blocks and a reader
// in 256-frame slices. Every sample that comes out must be in order: the
// reader never sees a sample before the writer published it.
TEST(MicBridgeThreads, ConcurrentWriterAndReaderKeepOrderAndBounds) {
    MicBridge bridge(48000, 0.02);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        std::vector<float> block(480);
        float value = 1.0f;
        while (!stop.load()) {
            for (float& x : block) x = value++;
            bridge.write(block.data(), 1, 480);
            std::this_thread::sleep_for(std::chrono::microseconds(9800));
        }
    });
    std::vector<float> out(256);
    BufferList list;
    list.count = 1;
    list.data[0] = out.data();
    float last = 0.0f;
    int outOfOrder = 0;
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    while (std::chrono::steady_clock::now() < until) {
        bridge.read(list, 256);
        for (float x : out) {
            if (x == 0.0f) continue;
            if (x <= last) ++outOfOrder;
            last = x;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(5333));
    }
    stop = true;
    writer.join();
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_GT(last, 0.0f);
}
