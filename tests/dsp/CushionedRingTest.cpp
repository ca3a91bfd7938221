// The one queue between threads: priming, underrun, trimming a backlog down
// to the newest audio, clearing, and a writer and a reader on two threads
// across the end of the ring (run under ThreadSanitizer in CI).
#include "dsp/CushionedRing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

using parlova::CushionedRing;

namespace {

// Writes `count` samples numbered on from `next`, so reads tell exactly which survived.
void feed(CushionedRing& ring, float& next, size_t count) {
    std::vector<float> block(count);
    std::iota(block.begin(), block.end(), next);
    next += float(count);
    ring.write(block.data(), count);
}

std::vector<float> take(CushionedRing& ring, int frames) {
    std::vector<float> out(size_t(frames), -1.0f);
    ring.read(out.data(), frames);
    return out;
}

const CushionedRing::TrimRule kDefaultRule{6, 0, 2, 0};  // the default: above six cushions, down to two

}  // namespace

TEST(CushionedRing, WaitsForItsCushionAndAgainAfterRunningDry) {
    CushionedRing ring(24000, 960, kDefaultRule);
    float next = 1;
    EXPECT_EQ(take(ring, 256), std::vector<float>(256, 0.0f));
    EXPECT_EQ(ring.underruns(), 0u);
    feed(ring, next, 959);
    EXPECT_EQ(take(ring, 256), std::vector<float>(256, 0.0f));  // one sample short
    EXPECT_EQ(ring.size(), 959u);                               // nothing consumed while unprimed
    feed(ring, next, 1);
    EXPECT_EQ(take(ring, 4), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_TRUE(ring.isPrimed());

    // More asked than held: what is held, then silence; the ring waits again.
    const std::vector<float> rest = take(ring, 1000);
    EXPECT_EQ(rest[955], 960.0f);
    EXPECT_EQ(rest[956], 0.0f);
    EXPECT_FALSE(ring.isPrimed());
    EXPECT_EQ(ring.underruns(), 1u);
    feed(ring, next, 500);
    EXPECT_EQ(take(ring, 8), std::vector<float>(8, 0.0f));
    feed(ring, next, 460);
    EXPECT_EQ(take(ring, 1)[0], 961.0f);
}

TEST(CushionedRing, ABacklogIsTrimmedToTheNewestAudio) {
    struct Case {
        size_t capacity, cushion;
        CushionedRing::TrimRule rule;
        std::vector<size_t> writes;
        int delivered;  // frames the next read returns
        uint64_t trims;
        float front, back;  // of what it returns (samples are numbered from 1)
    };
    const Case cases[] = {
        {24000, 960, kDefaultRule, {6000}, 1920, 1, 6001 - 1920, 6000},
        {24000, 960, kDefaultRule, {5760}, 5760, 0, 1, 5760},  // exactly six cushions are kept
        {24000, 960, kDefaultRule, {5760, 1}, 1920, 1, 5762 - 1920, 5761},
        {8000, 1000, kDefaultRule, {12000}, 2000, 1, 10001, 12000},  // a write beyond the room keeps its newest
        // The cloned voice's rule: above the cushion and half a second, down to the cushion.
        {1000, 100, {1, 500, 1, 0}, {700}, 100, 1, 601, 700},
        {1000, 100, {1, 500, 1, 0}, {600}, 600, 0, 1, 600},
    };
    for (const Case& c : cases) {
        CushionedRing ring(c.capacity, c.cushion, c.rule);
        float next = 1;
        for (size_t frames : c.writes) feed(ring, next, frames);
        const auto out = take(ring, c.delivered);
        SCOPED_TRACE(testing::Message() << c.capacity << " " << c.writes.front());
        EXPECT_EQ(ring.trims(), c.trims);
        EXPECT_EQ(out.front(), c.front);
        EXPECT_EQ(out.back(), c.back);
        EXPECT_EQ(ring.size(), 0u);
        EXPECT_EQ(ring.underruns(), 0u);
    }
}

TEST(CushionedRing, ClearDropsWhatCameBeforeAndWaitsForANewCushion) {
    CushionedRing ring(1000, 100, {1, 500, 1, 0});
    float next = 1;
    feed(ring, next, 300);
    EXPECT_EQ(take(ring, 1)[0], 1.0f);
    ring.clear();  // as from another thread: applied at the next read
    feed(ring, next, 50);
    EXPECT_EQ(take(ring, 1)[0], 0.0f);
    feed(ring, next, 50);
    EXPECT_EQ(take(ring, 1)[0], 301.0f);
}

// A writer in 10 ms blocks and a reader in 256-sample slices at the same
// nominal rate: every sample that comes out is in order, so the reader never
// sees a sample before the writer published it, nor a slot being rewritten.
TEST(CushionedRingThreads, AWriterAndAReaderOnTwoThreadsKeepTheOrder) {
    CushionedRing ring(24000, 960, kDefaultRule);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        float next = 1;
        while (!stop.load()) {
            feed(ring, next, 480);
            std::this_thread::sleep_for(std::chrono::microseconds(9800));
        }
    });
    std::vector<float> out(256);
    float last = 0.0f;
    int outOfOrder = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    while (std::chrono::steady_clock::now() < until) {
        ring.read(out.data(), 256);
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

// A reader and a writer in step at the same rate: what the queue held when
// reading began stays in it (and in the delay) unless it settles.
TEST(CushionedRing, ABacklogTheReaderNeverNeedsSettlesToACushion) {
    constexpr size_t kCushion = 720, kSettle = 96000;  // 15 ms and 2 s at 48 kHz
    struct Case {
        const char* name;
        size_t burst;       // held when reading starts
        size_t writeBlock;  // then written per 5 ms, read in 240-sample slices
        size_t lowest;      // held before a read over the last second
        uint64_t settles;
    };
    const Case cases[] = {
        // A start-up burst of 55 ms: back to a cushion's margin (plus the block just written).
        {"burst", 2640, 240, kCushion + 240, 1},
        // Less than half a cushion over: left alone, the reader may need it.
        {"small excess", 1000, 240, 1000 + 240, 0},
        // A writer in 20 ms blocks uses its cushion: never touched.
        {"lumpy writer", 960, 960, 1200, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CushionedRing ring(24000, kCushion, {6, 0, 2, 0, kSettle});
        float next = 1, last = 0;
        feed(ring, next, c.burst);
        size_t lowest = SIZE_MAX;
        for (size_t t = 0; t < 3 * 48000; t += 240) {
            if (t % c.writeBlock == 0) feed(ring, next, c.writeBlock);
            if (t + 240 > 2 * 48000) lowest = std::min(lowest, ring.size());
            for (float x : take(ring, 240)) {
                ASSERT_GT(x, last);  // in order, no silence
                last = x;
            }
        }
        EXPECT_EQ(ring.underruns(), 0u);
        EXPECT_EQ(lowest, c.lowest);
        EXPECT_EQ(ring.settles(), c.settles);
    }
}
