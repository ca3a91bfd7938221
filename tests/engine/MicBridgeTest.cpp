// The microphone bridge's own work on top of its queue: the mono mix-down of
// what the microphone delivers, interleaved or not, and the fan-out to every
// output channel.
#include "engine/MicBridge.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

using parlova::BufferList;
using parlova::MicBridge;

namespace {

BufferList buffers(std::vector<std::vector<float>>& channels) {
    BufferList list;
    list.count = static_cast<int>(channels.size());
    for (size_t c = 0; c < channels.size(); ++c) list.data[c] = channels[c].data();
    return list;
}

}  // namespace

TEST(MicBridge, MixesEveryLayoutDownToMonoAndFansItOutToEveryChannel) {
    MicBridge bridge(48000, 0.02);
    std::vector<float> interleaved;
    for (int i = 0; i < 960; ++i) interleaved.insert(interleaved.end(), {1.0f, -1.0f});  // opposite sides cancel
    bridge.write(interleaved.data(), 2, 960);
    std::vector<std::vector<float>> three = {std::vector<float>(960, 0.9f), std::vector<float>(960, 0.3f),
                                             std::vector<float>(960, 0.0f)};
    BufferList planar = buffers(three);
    bridge.write(planar, 960);
    std::vector<float> ramp(960);
    std::iota(ramp.begin(), ramp.end(), 1.0f);
    bridge.write(ramp.data(), 1, 960);

    std::vector<std::vector<float>> out(3, std::vector<float>(960, -1.0f));
    BufferList list = buffers(out);
    const std::vector<float> expected[] = {std::vector<float>(960, 0.0f), std::vector<float>(960, 0.4f), ramp};
    for (const auto& want : expected) {
        EXPECT_EQ(bridge.pull(list, 960), parlova::status::ok);
        for (size_t i = 0; i < 960; ++i) ASSERT_NEAR(out[0][i], want[i], 1e-6) << i;
        EXPECT_EQ(out[1], out[0]);
        EXPECT_EQ(out[2], out[0]);
    }
    EXPECT_EQ(bridge.count(), 0);
    // Silence fans out too.
    bridge.pull(list, 960);
    for (const auto& channel : out) EXPECT_EQ(channel, std::vector<float>(960, 0.0f));
}
