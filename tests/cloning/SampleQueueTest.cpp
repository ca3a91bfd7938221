#include "cloning/SampleQueue.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

using namespace parlova;

namespace {

// Writes `count` samples numbered on from `next`.
void feed(SampleQueue& queue, float& next, size_t count) {
    std::vector<float> block(count);
    std::iota(block.begin(), block.end(), next);
    next += float(count);
    queue.write(block.data(), count);
}

std::vector<float> take(SampleQueue& queue, int frames, float gain = 1.0f) {
    std::vector<float> out(size_t(frames), -1.0f);
    queue.read(out.data(), frames, gain);
    return out;
}

}  // namespace

TEST(SampleQueueTest, WaitsForItsCushionAgainAfterRunningDry) {
    SampleQueue queue(2.0, 48000);
    queue.setCushionSeconds(0.4);
    float next = 1;
    feed(queue, next, 19199);
    EXPECT_EQ(take(queue, 256), std::vector<float>(256, 0.0f));  // one sample short of 19,200
    feed(queue, next, 1);
    EXPECT_EQ(take(queue, 4, 0.5f), (std::vector<float>{0.5f, 1.0f, 1.5f, 2.0f}));

    // More asked than held: what is held, then silence; the queue is dry.
    std::vector<float> rest = take(queue, 19200);
    EXPECT_EQ(rest[19195], 19200.0f);
    EXPECT_EQ(rest[19196], 0.0f);
    EXPECT_EQ(queue.underruns(), 1u);
    feed(queue, next, 10000);
    EXPECT_EQ(take(queue, 8), std::vector<float>(8, 0.0f));
    feed(queue, next, 9200);
    EXPECT_EQ(take(queue, 1)[0], 19201.0f);
}

TEST(SampleQueueTest, KeepsTheNewestAudioWhenItPilesUpOrIsCleared) {
    SampleQueue queue(1.0, 1000);
    queue.setCushionSeconds(0.1);
    float next = 1;
    feed(queue, next, 1500);  // more than the ring: the oldest 500 never get in
    EXPECT_EQ(queue.dropped(), 500u);
    // 1000 held is beyond cushion + backlog: skipped down to the newest 100.
    EXPECT_EQ(take(queue, 1)[0], 1401.0f);
    queue.clear();
    feed(queue, next, 100);
    EXPECT_EQ(take(queue, 1)[0], 1501.0f);
}
