// Long runs of every effect unit over random noise with parameters changing
// between blocks: the output must stay finite and within sane bounds.
#include "dsp/Equalizer.h"
#include "dsp/GrainAudioUnit.h"
#include "dsp/Reverb.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

// Pulls 1800 blocks of noise through `unit` in blocks (every tenth of a random
// size), calling `tweak` before each; the largest magnitude seen, or infinity
// on any non-finite sample.
double largestOutput(InPlaceEffectUnit& unit, const std::function<void(std::mt19937&)>& tweak) {
    ts::MemorySource noise(ts::noise(20.0, 48000, 2, 1.0f, 42).channels);
    unit.setFormat({48000.0, 2});
    unit.setInput(&noise);
    unit.allocateRenderResources();
    std::mt19937 rng(7);
    ts::Channels out(2, InPlaceEffectUnit::kDefaultMaxFrames);
    double largest = 0.0;
    for (int b = 0; b < 1800; ++b) {
        tweak(rng);
        const int n = b % 10 == 0 ? std::uniform_int_distribution<int>(0, InPlaceEffectUnit::kDefaultMaxFrames)(rng) : 256;
        BufferList list = out.list(0, n);
        EXPECT_EQ(unit.pull(list, n), status::ok);
        for (const auto& ch : out.data)
            for (int i = 0; i < n; ++i)
                largest = std::isfinite(ch[static_cast<size_t>(i)]) ? std::max(largest, double(std::fabs(ch[static_cast<size_t>(i)]))) : INFINITY;
    }
    unit.setInput(nullptr);
    return largest;
}

}  // namespace

TEST(DspBoundedOutput, EachUnitStaysFiniteAndBoundedOverManyBlocksOfNoise) {
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    GrainAudioUnit grain;
    EXPECT_LT(largestOutput(grain, [&](std::mt19937& rng) { grain.amount.store(-0.5f + 3.5f * unit(rng)); }), 3.0);
    Equalizer eq;
    EXPECT_LT(largestOutput(eq, [&](std::mt19937& rng) {
        if (unit(rng) >= 0.1f) return;
        eq.setBand(0, 20.0f + 400.0f * unit(rng), 0.0f, unit(rng) < 0.3f);
        eq.setBand(1, 200.0f, -12.0f + 24.0f * unit(rng), unit(rng) < 0.3f);
        eq.setBand(2, 2400.0f, -12.0f + 24.0f * unit(rng), unit(rng) < 0.3f);
        eq.setBand(3, 2000.0f + 20000.0f * unit(rng), 0.0f, unit(rng) < 0.3f);
        eq.setGlobalGain(-12.0f + 18.0f * unit(rng));
    }), 40.0);
    Reverb reverb;
    EXPECT_LT(largestOutput(reverb, [&](std::mt19937& rng) { reverb.setWetDryMix(-10.0f + 120.0f * unit(rng)); }), 6.0);
}
