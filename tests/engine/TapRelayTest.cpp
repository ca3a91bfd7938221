#include "engine/TapRelay.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

using namespace parlova;

TEST(TapRelay, DeliversWholeBlocksInOrderOffTheCallingThread) {
    std::mutex lock;
    std::vector<float> received;
    std::thread::id handlerThread;
    {
        TapRelay relay(1024, [&](const float* mono, int frames) {
            EXPECT_EQ(frames, 1024);
            std::lock_guard guard(lock);
            handlerThread = std::this_thread::get_id();
            received.insert(received.end(), mono, mono + frames);
        });
        // Odd block sizes, as an output device asks for them.
        std::vector<float> ramp(5000);
        for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i);
        for (size_t at = 0; at < ramp.size(); at += 333) {
            relay.push(ramp.data() + at, static_cast<int>(std::min<size_t>(333, ramp.size() - at)));
        }
    }  // the relay hands on every finished block before it goes
    ASSERT_EQ(received.size(), 4u * 1024u);  // the partial fifth block is not handed on
    for (size_t i = 0; i < received.size(); ++i) ASSERT_EQ(received[i], static_cast<float>(i));
    EXPECT_NE(handlerThread, std::this_thread::get_id());
}

TEST(TapRelay, DropsBlocksRatherThanWaitingForAStuckHandler) {
    // The handler holds on to the first block until every push has returned, so
    // a relay that waited for it would never get there; one that drops keeps
    // its four slots and loses the rest.
    std::atomic<bool> release{false};
    std::atomic<int> handled{0};
    {
        TapRelay relay(256, [&](const float*, int) {
            while (!release.load()) std::this_thread::yield();
            ++handled;
        }, 4);
        std::vector<float> block(256, 1.0f);
        for (int i = 0; i < 100; ++i) relay.push(block.data(), 256);
        // The handler holds at most one block and the ring four more.
        EXPECT_GE(relay.dropped(), 95u);
        release.store(true);
    }
    EXPECT_GE(handled.load(), 4);
    EXPECT_LE(handled.load(), 5);
}
