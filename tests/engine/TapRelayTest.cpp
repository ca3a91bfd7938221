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
        TapRelay relay(1, 1024, [&](const float* const* ch, int channels, int frames) {
            EXPECT_EQ(channels, 1);
            EXPECT_EQ(frames, 1024);
            std::lock_guard guard(lock);
            handlerThread = std::this_thread::get_id();
            received.insert(received.end(), ch[0], ch[0] + frames);
        });
        // Odd block sizes, as an output device asks for them.
        std::vector<float> ramp(5000);
        for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i);
        for (size_t at = 0; at < ramp.size(); at += 333) {
            const float* p = ramp.data() + at;
            relay.push(&p, static_cast<int>(std::min<size_t>(333, ramp.size() - at)));
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
        TapRelay relay(2, 256, [&](const float* const*, int channels, int) {
            EXPECT_EQ(channels, 2);
            while (!release.load()) std::this_thread::yield();
            ++handled;
        }, 4);
        std::vector<float> left(256, 1.0f), right(256, -1.0f);
        const float* channels[2] = {left.data(), right.data()};
        for (int i = 0; i < 100; ++i) relay.push(channels, 256);
        EXPECT_EQ(relay.dropped(), 96u);
        release.store(true);
    }
    EXPECT_EQ(handled.load(), 4);
}
