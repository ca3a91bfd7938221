// Rate conversion at both qualities: a live stream in blocks of any size keeps
// its length, and a flushed stream ends where its input ends with its last
// click still in place.
#include "media/RateConverter.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

using namespace parlova;

TEST(RateConverter, LiveStreamKeepsItsLengthInAnyBlockSize) {
    auto down = RateConverter::create(48000, 24000, 1, 4096, RateConverter::Quality::minimumPhase);
    ASSERT_TRUE(down);
    const std::vector<float> speech = testaudio::tone(220, 48000, 48000, 0.5f, testaudio::Wave::vowel);
    EXPECT_TRUE(down->convert(speech.data(), 0).empty());
    std::vector<float> out;
    for (size_t at = 0, block = 100; at < speech.size(); at += block, block = block * 7 % 9000 + 1)
        ASSERT_TRUE(down->convert(speech.data() + at, std::min(block, speech.size() - at), out));
    // 48,000 in: 24,000 out, less what the filter still holds.
    EXPECT_GT(out.size(), 23500u);
    EXPECT_LE(out.size(), 24000u);
    EXPECT_NEAR(testaudio::fundamental(out, 24000, 12000, 9600), 220.0, 0.5);

    EXPECT_FALSE(RateConverter::create(0, 24000, 1, 4096));
    EXPECT_FALSE(RateConverter::create(48000, std::numeric_limits<double>::quiet_NaN(), 1, 4096));
}

TEST(RateConverter, FlushEndsTheStreamWhereTheInputEnds) {
    for (auto [from, to, frames] : {std::tuple{37800, 44100, 12345}, {48000, 22050, 30001}, {44100, 48000, 100}}) {
        // A click 50 frames before the end, which only the flush brings out.
        std::vector<float> click(static_cast<size_t>(frames), 0.0f);
        click[static_cast<size_t>(frames - 50)] = 1.0f;
        auto converter = RateConverter::create(from, to, 1, 1000);
        ASSERT_TRUE(converter);
        std::vector<float> out, block(static_cast<size_t>(converter->maxOutputFrames()));
        float* blockPointer = block.data();
        for (int at = 0; at < frames; at += 1000) {
            const float* in = click.data() + at;
            const int got = converter->process(&in, std::min(1000, frames - at), &blockPointer);
            ASSERT_GE(got, 0);
            out.insert(out.end(), block.begin(), block.begin() + got);
        }
        for (int got; (got = converter->flush(&blockPointer)) != 0;) {
            ASSERT_GT(got, 0);
            out.insert(out.end(), block.begin(), block.begin() + got);
        }
        const double ratio = static_cast<double>(to) / from;
        EXPECT_EQ(out.size(), static_cast<size_t>(std::ceil(frames * ratio))) << from << " -> " << to;
        const auto peak = std::max_element(out.begin(), out.end(), [](float a, float b) { return std::fabs(a) < std::fabs(b); });
        EXPECT_EQ(peak - out.begin(), std::lround((frames - 50) * ratio)) << from << " -> " << to;
    }
}
