// The volume ramp the output, the chain's exit and the equalizer share: a
// mute and an unmute in the middle of blocks glide without a click, take the
// ramp's length, and a steady unity gain leaves the samples alone.
#include "dsp/GainRamp.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace parlova;

TEST(GainRamp, MuteAndUnmuteGlideOverTheRampLength) {
    const std::vector<float> tone = testaudio::tone(1000, 48000, 9600, 0.5f);
    std::vector<float> left = tone, right = tone;
    GainRamp ramp;
    ramp.prepare(48000, 0.005);
    for (int at = 0; at < 9600; at += 160) {
        if (at == 960) ramp.setTarget(0.0f);   // a mute
        if (at == 1120) ramp.setTarget(0.5f);  // turned around two thirds down
        if (at == 4000) ramp.setTarget(0.0f);
        float* both[2] = {left.data() + at, right.data() + at};
        ramp.apply(both, 2, 160);
    }
    EXPECT_EQ(left, right);  // one curve for both channels
    double step = 0, toneStep = 0;
    for (size_t i = 1; i < tone.size(); ++i) {
        step = std::max(step, std::fabs(static_cast<double>(left[i]) - left[i - 1]));
        toneStep = std::max(toneStep, std::fabs(static_cast<double>(tone[i]) - tone[i - 1]));
    }
    EXPECT_LE(step, toneStep * 1.01) << "the gain stepped";
    // 5 ms: silent from frame 4,000 + 240 on, and not a frame earlier.
    EXPECT_NE(left[4000 + 238], 0.0f);
    EXPECT_EQ(testaudio::peak(std::vector<float>(left.begin() + 4000 + 240, left.end())), 0.0);
    EXPECT_NEAR(testaudio::rms(left, 1600, 1920), 0.5 * testaudio::rms(tone, 1600, 1920), 1e-4);
    EXPECT_TRUE(ramp.isSteady());

    ramp.jumpTo(1.0f);
    std::vector<float> untouched = tone;
    ramp.apply(untouched.data(), 9600);
    EXPECT_EQ(std::memcmp(untouched.data(), tone.data(), tone.size() * sizeof(float)), 0);
}
