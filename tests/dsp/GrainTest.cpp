#include "dsp/GrainAudioUnit.h"
#include "dsp/GrainDSP.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

constexpr int kRate = 48000;

GrainDSP preparedDsp(double rate = kRate) {
    GrainDSP dsp;
    dsp.prepare(rate);
    return dsp;
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// Runs `dsp` in place over `signal` (one or more channels) in 256-frame blocks.
void run(GrainDSP& dsp, ts::Channels& signal, float amount, int block = 256) {
    const size_t frames = signal[0].size();
    for (size_t at = 0; at < frames; at += static_cast<size_t>(block)) {
        const int n = static_cast<int>(std::min<size_t>(static_cast<size_t>(block), frames - at));
        BufferList list = signal.list(at, n);
        dsp.process(list, list, n, amount);
    }
}

}  // namespace

TEST(Grain, SmallOrNegativeAmountsPassTheInputThroughUntouched) {
    for (float amount : {0.0f, -1.0f, 0.0005f, 0.001f, std::nanf("")}) {
        auto dsp = preparedDsp();
        ts::Channels signal(2, 4096);
        signal[0] = ts::whiteNoise(4096, 0.8f, 1);
        signal[1] = ts::tone(300, kRate, 4096);
        const auto before = signal.data;
        run(dsp, signal, amount);
        EXPECT_TRUE(sameBits(signal[0], before[0])) << amount;
        EXPECT_TRUE(sameBits(signal[1], before[1])) << amount;
        // The state does not move: same seed, no follower, no countdown.
        EXPECT_EQ(dsp.seed(), GrainDSP::kInitialSeed);
        EXPECT_EQ(dsp.envelope(), 0.0f);
        EXPECT_EQ(dsp.creakCountdown(), 0);
        EXPECT_EQ(dsp.creakEnvelope(), 1.0f);
    }

    // Out of place, bypass copies input to output.
    auto dsp = preparedDsp();
    const auto in = ts::whiteNoise(512, 0.5f, 2);
    std::vector<float> out(512, 9.0f);
    const float* inputs[] = {in.data()};
    float* outputs[] = {out.data()};
    dsp.process(inputs, outputs, 1, 1, 512, 0.0f);
    EXPECT_TRUE(sameBits(in, out));
}

TEST(Grain, AmountAboveOneActsAsOneAndRunsAreDeterministic) {
    ts::Channels a(1, kRate), b(1, kRate), c(1, kRate);
    a[0] = b[0] = c[0] = ts::tone(140, kRate, kRate);
    auto one = preparedDsp(), five = preparedDsp(), again = preparedDsp();
    run(one, a, 1.0f);
    run(five, b, 5.0f);
    run(again, c, 1.0f, 1000);  // block size does not change the sound either
    EXPECT_TRUE(sameBits(a[0], b[0]));
    EXPECT_TRUE(sameBits(a[0], c[0]));
    EXPECT_FALSE(sameBits(a[0], ts::tone(140, kRate, kRate)));

    // Re-preparing keeps the seed: the random sequence continues, not repeats.
    const uint32_t seed = one.seed();
    one.prepare(kRate);
    EXPECT_EQ(one.seed(), seed);
    EXPECT_NE(seed, GrainDSP::kInitialSeed);
    ts::Channels d(1, kRate);
    d[0] = ts::tone(140, kRate, kRate);
    run(one, d, 1.0f);
    EXPECT_FALSE(sameBits(a[0], d[0]));
}

TEST(Grain, SilenceStaysSilent) {
    auto dsp = preparedDsp();
    ts::Channels signal(2, kRate);
    run(dsp, signal, 1.0f);
    for (auto& channel : signal.data)
        for (float v : channel) ASSERT_EQ(v, 0.0f);
    EXPECT_NE(dsp.seed(), GrainDSP::kInitialSeed);  // but the unit did run
}

TEST(Grain, CreakPulsesAreSpacedLikeVocalFry) {
    // Opposite constant channels: their mono mix is 0, so the breath noise (which
    // follows the mix) vanishes and the output is the creak gate times a constant.
    auto dsp = preparedDsp();
    const size_t frames = static_cast<size_t>(kRate) * 10;
    ts::Channels signal(2, frames);
    std::fill(signal[0].begin(), signal[0].end(), 0.5f);
    std::fill(signal[1].begin(), signal[1].end(), -0.5f);
    run(dsp, signal, 1.0f);

    std::vector<size_t> pulses;  // a pulse starts where the level jumps up
    for (size_t i = 1; i < frames; ++i) {
        EXPECT_EQ(signal[1][i], -signal[0][i]);
        if (signal[0][i] > signal[0][i - 1] * 1.5f) pulses.push_back(i);
    }
    ASSERT_GT(pulses.size(), 300u);
    RecordProperty("pulses", static_cast<int>(pulses.size()));
    size_t shortest = frames, longest = 0;
    for (size_t p = 1; p < pulses.size(); ++p) {
        shortest = std::min(shortest, pulses[p] - pulses[p - 1]);
        longest = std::max(longest, pulses[p] - pulses[p - 1]);
    }
    EXPECT_GE(shortest, 541u);   // 48000 / 62 * 0.7, truncated
    EXPECT_LE(longest, 1835u);   // 48000 / 34 * 1.3, truncated
    EXPECT_GT(pulses.size(), 340u);  // about 48 per second on average
    EXPECT_LT(pulses.size(), 560u);

    // Between pulses the gate falls to 1 - 0.8 = 0.2 of its peak.
    const float top = *std::max_element(signal[0].begin(), signal[0].end());
    const float bottom = *std::min_element(signal[0].begin(), signal[0].end());
    EXPECT_NEAR(bottom / top, 0.2f, 0.02f);
}

TEST(Grain, MonoAndStereoShareGateAndNoise) {
    const auto voice = ts::tone(120, kRate, kRate / 2, 0.4f);
    auto mono = preparedDsp(), stereo = preparedDsp();
    ts::Channels one(1, voice.size()), two(2, voice.size());
    one[0] = two[0] = two[1] = voice;
    run(mono, one, 0.7f);
    run(stereo, two, 0.7f);
    EXPECT_TRUE(sameBits(one[0], two[0]));
    EXPECT_TRUE(sameBits(one[0], two[1]));

    // Extra output channels beyond the input's are not touched.
    auto dsp = preparedDsp();
    std::vector<float> in = voice, out0(voice.size()), out1(voice.size(), 3.0f);
    const float* inputs[] = {in.data()};
    float* outputs[] = {out0.data(), out1.data()};
    dsp.process(inputs, outputs, 1, 2, static_cast<int>(voice.size()), 1.0f);
    EXPECT_EQ(out1.front(), 3.0f);
    EXPECT_EQ(out1.back(), 3.0f);
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
    EXPECT_TRUE(sameBits(out[0], std::vector<float>(input.begin(), input.begin() + 4096)));

    unit.amount.store(0.8f, std::memory_order_relaxed);
    ASSERT_EQ(unit.pull(list, 4096), status::ok);
    EXPECT_FALSE(sameBits(out[0], std::vector<float>(input.begin() + 4096, input.end())));
    EXPECT_TRUE(sameBits(out[0], out[1]));
    EXPECT_NE(unit.dsp().seed(), GrainDSP::kInitialSeed);
}
