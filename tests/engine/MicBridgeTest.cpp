// The microphone bridge's own work on top of its queue: the mono mix-down of
// what the microphone delivers and the fan-out to every output channel.
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
