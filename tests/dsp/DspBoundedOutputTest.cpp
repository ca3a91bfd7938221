// Long runs of every effect unit over random noise with parameters changing
// between blocks: the output must stay finite and within sane bounds.
#include "dsp/Equalizer.h"
#include "dsp/GrainAudioUnit.h"
#include "dsp/Reverb.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <random>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

struct NoiseSource : AudioSource {
    std::mt19937 rng{42};
    float amplitude = 1.0f;
    int32_t pull(BufferList& out, int frames) noexcept override {
        std::uniform_real_distribution<float> dist(-amplitude, amplitude);
        for (int c = 0; c < out.count; ++c)
            for (int i = 0; i < frames; ++i) out.data[c][i] = dist(rng);
        return status::ok;
    }
};

// Pulls `blocks` blocks of random sizes from `tail`, calling `tweak` before each,
// and returns the largest magnitude seen; fails on any non-finite sample.
template <class Tweak>
double runBlocks(InPlaceEffectUnit& tail, int blocks, Tweak tweak) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> size(0, InPlaceEffectUnit::kDefaultMaxFrames);
    ts::Channels out(2, InPlaceEffectUnit::kDefaultMaxFrames);
    double largest = 0.0;
    for (int b = 0; b < blocks; ++b) {
        tweak(rng);
        const int n = b % 10 == 0 ? size(rng) : 256;
        BufferList list = out.list(0, n);
        EXPECT_EQ(tail.pull(list, n), status::ok);
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < n; ++i) {
                const float v = out[static_cast<size_t>(c)][static_cast<size_t>(i)];
                if (!std::isfinite(v)) {
                    ADD_FAILURE() << "non-finite sample in block " << b;
                    return INFINITY;
                }
                largest = std::max(largest, static_cast<double>(std::fabs(v)));
            }
    }
    return largest;
}

template <class Unit>
void prepare(Unit& unit, AudioSource& input) {
    unit.setFormat({48000.0, 2});
    unit.setInput(&input);
    unit.allocateRenderResources();
}

}  // namespace

TEST(DspBoundedOutput, EachUnitStaysFiniteAndBoundedOverManyBlocksOfNoise) {
    NoiseSource noise;
    const int blocks = 2000;  // about 10 s at 48 kHz

    GrainAudioUnit grain;
    prepare(grain, noise);
    EXPECT_LT(runBlocks(grain, blocks, [&](std::mt19937& rng) {
        grain.amount.store(std::uniform_real_distribution<float>(-0.5f, 3.0f)(rng), std::memory_order_relaxed);
    }), 3.0);

    Equalizer eq;
    prepare(eq, noise);
    EXPECT_LT(runBlocks(eq, blocks, [&](std::mt19937& rng) {
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        if (unit(rng) < 0.1f) {
            eq.setBand(0, 20.0f + 400.0f * unit(rng), 0.0f, unit(rng) < 0.3f);
            eq.setBand(1, 200.0f, -12.0f + 24.0f * unit(rng), unit(rng) < 0.3f);
            eq.setBand(2, 2400.0f, -12.0f + 24.0f * unit(rng), unit(rng) < 0.3f);
            eq.setBand(3, 2000.0f + 20000.0f * unit(rng), 0.0f, unit(rng) < 0.3f);
            eq.setGlobalGain(-12.0f + 18.0f * unit(rng));
        }
    }), 40.0);

    Reverb reverb;
    prepare(reverb, noise);
    EXPECT_LT(runBlocks(reverb, blocks, [&](std::mt19937& rng) {
        reverb.setWetDryMix(std::uniform_real_distribution<float>(-10.0f, 110.0f)(rng));
    }), 6.0);
}
