#include "dsp/GrainAudioUnit.h"
#include "dsp/GrainDSP.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

constexpr int kRate = 48000;

GrainDSP preparedDsp(double rate = kRate) {
    GrainDSP dsp;
    dsp.prepare(rate);
    return dsp;
}

// Runs a fresh grain over `samples` on `channels` channels in place, in blocks.
std::vector<std::vector<float>> run(const std::vector<float>& samples, float amount, int channels = 1, int block = 256) {
    GrainDSP dsp = preparedDsp();
    ts::Channels signal(channels, samples.size());
    for (auto& ch : signal.data) ch = samples;
    for (size_t at = 0; at < samples.size(); at += static_cast<size_t>(block)) {
        const int n = static_cast<int>(std::min<size_t>(static_cast<size_t>(block), samples.size() - at));
        BufferList list = signal.list(at, n);
        dsp.process(list, list, n, amount);
    }
    return signal.data;
}

}  // namespace

TEST(Grain, SmallOrNegativeAmountsPassTheInputThrough) {
    const auto noise = ts::whiteNoise(4096, 0.8f, 1);
    for (float amount : {0.0f, -1.0f, 0.0005f, 0.001f, std::nanf("")}) {
        auto dsp = preparedDsp();
        ts::Channels signal(1, 4096);
        signal[0] = noise;
        BufferList list = signal.list(0, 4096);
        dsp.process(list, list, 4096, amount);
        EXPECT_EQ(signal[0], noise) << amount;
    }
    // Out of place, bypass copies the input; extra output channels are not touched.
    auto dsp = preparedDsp();
    std::vector<float> out0(4096), out1(4096, 3.0f);
    const float* inputs[] = {noise.data()};
    float* outputs[] = {out0.data(), out1.data()};
    dsp.process(inputs, outputs, 1, 2, 4096, 0.0f);
    EXPECT_EQ(out0, noise);
    dsp.process(inputs, outputs, 1, 2, 4096, 1.0f);
    EXPECT_EQ(out1, std::vector<float>(4096, 3.0f));
}

TEST(Grain, RunsAreDeterministicAndSharedAcrossChannels) {
    const auto voice = ts::tone(140, kRate, kRate, 0.4f);
    const auto one = run(voice, 1.0f);
    EXPECT_NE(one[0], voice);
    EXPECT_EQ(run(voice, 5.0f)[0], one[0]);               // above one acts as one
    EXPECT_EQ(run(voice, 1.0f, 1, 1000)[0], one[0]);      // the block size does not change the sound
    const auto stereo = run(voice, 1.0f, 2);              // mono and stereo share gate and noise
    EXPECT_EQ(stereo[0], one[0]);
    EXPECT_EQ(stereo[1], one[0]);
    EXPECT_EQ(run(std::vector<float>(kRate, 0.0f), 1.0f)[0], std::vector<float>(kRate, 0.0f));  // silence stays
}

TEST(Grain, CreakPulsesAreSpacedLikeVocalFry) {
    // Opposite constant channels: their mono mix is 0, so the breath noise (which
    // follows the mix) vanishes and the output is the creak gate times a constant.
    const size_t frames = static_cast<size_t>(kRate) * 10;
    auto dsp = preparedDsp();
    ts::Channels signal(2, frames);
    std::fill(signal[0].begin(), signal[0].end(), 0.5f);
    std::fill(signal[1].begin(), signal[1].end(), -0.5f);
    for (size_t at = 0; at < frames; at += 256) {
        BufferList list = signal.list(at, 256);
        dsp.process(list, list, 256, 1.0f);
    }
    std::vector<size_t> pulses;  // a pulse starts where the level jumps up
    for (size_t i = 1; i < frames; ++i) {
        EXPECT_EQ(signal[1][i], -signal[0][i]);
        if (signal[0][i] > signal[0][i - 1] * 1.5f) pulses.push_back(i);
    }
    size_t shortest = frames, longest = 0;
    for (size_t p = 1; p < pulses.size(); ++p) {
        shortest = std::min(shortest, pulses[p] - pulses[p - 1]);
        longest = std::max(longest, pulses[p] - pulses[p - 1]);
    }
    // Vocal fry: some 30 to 60 pulses a second, never closer than 11 ms or further apart than 38 ms.
    EXPECT_GE(shortest, 541u);
    EXPECT_LE(longest, 1835u);
    EXPECT_GT(pulses.size(), 340u);
    EXPECT_LT(pulses.size(), 560u);
}

TEST(Grain, UnitReadsAmountAtRenderAndPreparesAtTheFormatRate) {
    const auto input = ts::tone(200, 44100, 8192, 0.4f);
    ts::MemorySource source({input});
    GrainAudioUnit unit;
    unit.setInput(&source);
    unit.setFormat({44100.0, 2});
    unit.allocateRenderResources();
    EXPECT_EQ(unit.dsp().sampleRate(), 44100.0f);

    ts::Channels out(2, 4096);
    BufferList list = out.list(0, 4096);
    ASSERT_EQ(unit.pull(list, 4096), status::ok);  // amount 0: dry
    EXPECT_EQ(out[0], std::vector<float>(input.begin(), input.begin() + 4096));
    unit.amount.store(0.8f, std::memory_order_relaxed);
    ASSERT_EQ(unit.pull(list, 4096), status::ok);
    EXPECT_NE(out[0], std::vector<float>(input.begin() + 4096, input.end()));
    EXPECT_EQ(out[0], out[1]);
}
