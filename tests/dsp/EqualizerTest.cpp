#include "dsp/Equalizer.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

// At the chain's rate, the only one it runs at.
std::unique_ptr<Equalizer> preparedEq(int channels = 2) {
    auto eq = std::make_unique<Equalizer>();
    eq->setFormat({48000.0, channels});
    eq->allocateRenderResources();
    return eq;
}

// Steady-state gain in dB of a sine at `hz` through `eq` (second half measured).
double gainAt(Equalizer& eq, double hz) {
    const size_t frames = 24000;
    ts::Channels in(1, frames);
    in[0] = ts::tone(hz, 48000, frames, 0.25f);
    auto out = ts::renderThrough(eq, in);
    return ts::toDb(ts::rms(out[0], frames / 2) / ts::rms(in[0], frames / 2));
}

bool sameBits(const ts::Channels& a, const ts::Channels& b) {
    for (size_t c = 0; c < a.data.size(); ++c)
        if (std::memcmp(a.data[c].data(), b.data[c].data(), a.data[c].size() * sizeof(float)) != 0) return false;
    return true;
}

ts::Channels stereoNoise(size_t frames) {
    ts::Channels in(2, frames);
    in[0] = ts::whiteNoise(frames, 0.5f, 11);
    in[1] = ts::whiteNoise(frames, 0.5f, 12);
    return in;
}

}  // namespace

TEST(Equalizer, BypassedBandsAndZeroGainLeaveTheSignalBitIdentical) {
    auto eq = preparedEq();
    auto in = stereoNoise(48000);
    EXPECT_TRUE(sameBits(ts::renderThrough(*eq, in), in));  // defaults: all bypassed

    // Bands with settings but bypassed, as the voice chain sets a neutral voice.
    eq->setBand(0, 20.0f, 0.0f, true);
    eq->setBand(1, 200.0f, 12.0f, true);
    eq->setBand(2, 2400.0f, -9.0f, true);
    eq->setBand(3, 19000.0f, 0.0f, true);
    eq->setGlobalGain(0.0f);
    EXPECT_TRUE(sameBits(ts::renderThrough(*eq, in), in));

    // Enabling one band changes the sound; bypassing it again restores the input exactly.
    eq->setBand(1, 200.0f, 6.0f, false);
    EXPECT_FALSE(sameBits(ts::renderThrough(*eq, in), in));
    eq->setBand(1, 200.0f, 6.0f, true);
    EXPECT_TRUE(sameBits(ts::renderThrough(*eq, in), in));

    // A global gain alone scales without filtering (once its short ramp is over).
    eq->setGlobalGain(-6.0f);
    auto quieter = ts::renderThrough(*eq, in);
    EXPECT_NEAR(ts::rms(quieter[1], 480) / ts::rms(in[1], 480), std::pow(10.0, -6.0 / 20.0), 1e-4);
}

TEST(Equalizer, CutFiltersMeasureAsButterworth) {
    auto eq = preparedEq(1);
    eq->setBand(0, 200.0f, 0.0f, false);  // low cut at 200 Hz
    EXPECT_NEAR(gainAt(*eq, 200), -3.01, 0.15);
    EXPECT_LT(gainAt(*eq, 50), -22.0);  // two octaves below: about -24 dB
    EXPECT_NEAR(gainAt(*eq, 3000), 0.0, 0.1);

    eq->setBand(0, 200.0f, 0.0f, true);
    eq->setBand(3, 4000.0f, 0.0f, false);  // high cut at 4 kHz
    EXPECT_NEAR(gainAt(*eq, 4000), -3.01, 0.15);
    EXPECT_LT(gainAt(*eq, 16000), -22.0);
    EXPECT_NEAR(gainAt(*eq, 300), 0.0, 0.1);
}

TEST(Equalizer, ShelfAndPresenceBoostWhereTheyShould) {
    auto eq = preparedEq(1);
    eq->setBand(1, 200.0f, 6.0f, false);
    EXPECT_NEAR(gainAt(*eq, 30), 6.0, 0.5);
    EXPECT_NEAR(gainAt(*eq, 200), 3.0, 0.5);  // half the shelf at its frequency
    EXPECT_NEAR(gainAt(*eq, 6000), 0.0, 0.2);

    eq->setBand(1, 200.0f, 0.0f, true);
    eq->setBand(2, 2400.0f, 9.0f, false);
    EXPECT_NEAR(gainAt(*eq, 2400), 9.0, 0.1);
    // 1.2 octaves wide: the gain is well down an octave and more away.
    EXPECT_LT(gainAt(*eq, 1000), 4.5);
    EXPECT_LT(gainAt(*eq, 6000), 4.5);
    EXPECT_NEAR(gainAt(*eq, 150), 0.0, 0.3);
    eq->setBand(2, 2400.0f, -9.0f, false);
    EXPECT_NEAR(gainAt(*eq, 2400), -9.0, 0.1);
}

TEST(Equalizer, PicksUpChangesAtTheNextRenderCall) {
    auto eq = preparedEq(1);
    ts::Channels in(1, 1024);
    in[0] = ts::tone(8000, 48000, 1024, 0.5f);
    ts::MemorySource source(in.data);
    eq->setInput(&source);
    ts::Channels out(1, 1024);
    BufferList first = out.list(0, 512);
    ASSERT_EQ(eq->pull(first, 512), status::ok);
    EXPECT_EQ(std::memcmp(out[0].data(), in[0].data(), 512 * sizeof(float)), 0);
    eq->setBand(3, 1000.0f, 0.0f, false);
    BufferList second = out.list(512, 512);
    ASSERT_EQ(eq->pull(second, 512), status::ok);
    EXPECT_LT(ts::rms(out[0], 768, 256), 0.05 * ts::rms(in[0], 768, 256));
    eq->setInput(nullptr);
}
