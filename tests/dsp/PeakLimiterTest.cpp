#include "dsp/PeakLimiter.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

std::unique_ptr<PeakLimiter> preparedLimiter(double rate = 48000.0, int channels = 2) {
    auto limiter = std::make_unique<PeakLimiter>();
    limiter->setFormat({rate, channels});
    limiter->allocateRenderResources();
    return limiter;
}

}  // namespace

TEST(PeakLimiter, QuietSignalsComeOutBitIdenticalAfterTheLookahead) {
    auto limiter = preparedLimiter();
    const int latency = limiter->latencyFrames();

    ts::Channels in(2, 48000);
    in[0] = ts::whiteNoise(48000, 0.98f, 7);
    in[1] = ts::tone(440, 48000, 48000, 0.9f);
    auto out = ts::renderThrough(*limiter, in, 333);
    for (size_t c = 0; c < 2; ++c) {
        for (int i = 0; i < latency; ++i) ASSERT_EQ(out[c][static_cast<size_t>(i)], 0.0f);
        EXPECT_EQ(std::memcmp(out[c].data() + latency, in[c].data(), (48000 - static_cast<size_t>(latency)) * sizeof(float)), 0);
    }
}

TEST(PeakLimiter, NeverExceedsTheCeilingOnLoudInput) {
    auto limiter = preparedLimiter();
    const size_t frames = 48000 * 3;
    ts::Channels in(2, frames);
    in[0] = ts::whiteNoise(frames, 6.0f, 8);
    in[1] = ts::tone(100, 48000, frames, 3.0f);
    for (size_t i = 1000; i < frames; i += 4999) in[1][i] = (i % 2) ? 40.0f : -40.0f;  // isolated spikes
    auto out = ts::renderThrough(*limiter, in);
    EXPECT_LE(ts::peak(out[0]), PeakLimiter::ceiling());
    EXPECT_LE(ts::peak(out[1]), PeakLimiter::ceiling());
    // It limits rather than mutes: the loud stretch still comes out loud.
    EXPECT_GT(ts::rms(out[0], 48000), 0.2);

    // A lone sine four times too loud settles just under the ceiling.
    auto sineLimiter = preparedLimiter(48000.0, 1);
    ts::Channels sine(1, 48000);
    sine[0] = ts::tone(220, 48000, 48000, 4.0f);
    auto limited = ts::renderThrough(*sineLimiter, sine);
    const std::vector<float> tail(limited[0].begin() + 24000, limited[0].end());
    EXPECT_LE(ts::peak(tail), PeakLimiter::ceiling());
    EXPECT_GT(ts::peak(tail), 0.9 * PeakLimiter::ceiling());
}

TEST(PeakLimiter, GainIsLinkedLeadsThePeakAndRecovers) {
    auto limiter = preparedLimiter();
    const int latency = limiter->latencyFrames();
    const size_t frames = 48000;
    ts::Channels in(2, frames);
    in[0] = ts::tone(300, 48000, frames, 0.5f);
    in[1] = ts::tone(300, 48000, frames, 0.25f);
    const size_t spike = 12000;
    in[0][spike] = 4.0f;  // only the left side is too loud
    auto out = ts::renderThrough(*limiter, in, 256);

    const size_t at = spike + static_cast<size_t>(latency);
    EXPECT_LE(std::fabs(out[0][at]), PeakLimiter::ceiling());
    // The gain falls before the peak arrives (lookahead) ...
    const size_t before = at - 24;  // half a millisecond earlier
    const float leftGain = out[0][before] / in[0][before - static_cast<size_t>(latency)];
    EXPECT_LT(leftGain, 0.9f);
    // ... and is the same on the quiet right side.
    const float rightGain = out[1][before] / in[1][before - static_cast<size_t>(latency)];
    EXPECT_NEAR(leftGain, rightGain, 1e-4f);
    // Recovery is gradual (tens of milliseconds), and complete within half a second.
    const size_t later = at + 48 * 20;  // 20 ms after
    const float recovering = out[1][later] / in[1][later - static_cast<size_t>(latency)];
    EXPECT_GT(recovering, leftGain);
    EXPECT_LT(recovering, 0.999f);
    const size_t settled = at + 24000;
    EXPECT_EQ(std::memcmp(out[1].data() + settled, in[1].data() + settled - latency,
                          (frames - settled) * sizeof(float)), 0);
}

TEST(PeakLimiter, InvalidSamplesBecomeSilenceNotNoise) {
    auto limiter = preparedLimiter(48000.0, 1);
    ts::Channels in(1, 4800);
    in[0] = ts::tone(200, 48000, 4800, 0.5f);
    in[0][100] = std::numeric_limits<float>::quiet_NaN();
    in[0][200] = std::numeric_limits<float>::infinity();
    auto out = ts::renderThrough(*limiter, in);
    for (float v : out[0]) ASSERT_TRUE(std::isfinite(v));
    EXPECT_LE(ts::peak(out[0]), PeakLimiter::ceiling());
}
