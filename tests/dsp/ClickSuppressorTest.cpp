// The click suppressor on its own: a click over a vowel goes and the vowel
// stays; sound that lasts (a hiss like a fricative, a vowel starting out of
// silence) passes untouched, only delayed.
#include "dsp/ClickSuppressor.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

constexpr double kRate = 48000;
constexpr size_t kDelay = ClickSuppressor::delayFrames();

std::vector<float> suppressed(std::vector<float> input, long* blocks = nullptr) {
    ClickSuppressor suppressor;
    suppressor.prepare(kRate);
    input.resize((input.size() / 480 + 1) * 480, 0.0f);
    for (size_t at = 0; at < input.size(); at += 480) suppressor.process(input.data() + at, 480);
    if (blocks) *blocks = suppressor.suppressedBlocks();
    return input;
}

// The input moved later by the suppressor's delay.
std::vector<float> delayed(const std::vector<float>& input, size_t length) {
    std::vector<float> out(length, 0.0f);
    for (size_t i = 0; i + kDelay < length && i < input.size(); ++i) out[i + kDelay] = input[i];
    return out;
}

// Level of the high notes of a - b over [from, from + count): the second
// difference, which weighs 8 kHz 30 dB over 1 kHz.
double highDifferenceDb(const std::vector<float>& a, const std::vector<float>& b, size_t from, size_t count) {
    std::vector<float> d(count);
    for (size_t i = from; i < from + count; ++i)
        d[i - from] = (a[i + 1] - 2 * a[i] + a[i - 1]) - (b[i + 1] - 2 * b[i] + b[i - 1]);
    return ts::toDb(ts::rms(d));
}

}  // namespace

TEST(ClickSuppressor, TakesAClickOutOfAVowelAndKeepsTheVowel) {
    const auto vowel = ts::tone(140, kRate, static_cast<size_t>(0.4 * kRate), 0.3f, ts::Wave::vowel);
    // A 3 ms decaying burst, as loud at its start as a key close to the microphone.
    const auto burst = ts::whiteNoise(static_cast<size_t>(0.003 * kRate), 0.9f, 7);
    std::vector<float> input = vowel;
    const size_t clickAt = static_cast<size_t>(0.2 * kRate);
    for (size_t i = 0; i < burst.size(); ++i) input[clickAt + i] += burst[i] * std::exp(-static_cast<float>(i) / 36.0f);

    long blocks = 0;
    const auto out = suppressed(input, &blocks);
    const auto clean = delayed(vowel, out.size());
    const auto noisy = delayed(input, out.size());
    const size_t around = clickAt + kDelay, span = 3 * 48;
    EXPECT_GE(blocks, 1);
    EXPECT_LE(blocks, 4);
    // The high notes the click added drop by 10 dB or more (its low notes,
    // which don't disturb the denoiser, stay)...
    EXPECT_LT(highDifferenceDb(out, clean, around, span), highDifferenceDb(noisy, clean, around, span) - 10);
    // ...and the vowel elsewhere comes out sample for sample.
    const size_t before = static_cast<size_t>(0.05 * kRate) + kDelay;
    for (size_t i = before; i < clickAt; ++i) ASSERT_EQ(out[i], clean[i]) << i;
}

TEST(ClickSuppressor, LeavesLastingSoundAlone) {
    std::vector<float> input(static_cast<size_t>(0.1 * kRate), 0.0f);
    // A hiss of 60 ms out of silence (a fricative), then silence, then a vowel.
    const auto hiss = ts::whiteNoise(static_cast<size_t>(0.06 * kRate), 0.2f, 3);
    input.insert(input.end(), hiss.begin(), hiss.end());
    input.resize(input.size() + static_cast<size_t>(0.1 * kRate), 0.0f);
    const auto vowel = ts::tone(220, kRate, static_cast<size_t>(0.2 * kRate), 0.3f, ts::Wave::vowel);
    input.insert(input.end(), vowel.begin(), vowel.end());

    long blocks = 0;
    const auto out = suppressed(input, &blocks);
    EXPECT_EQ(blocks, 0);
    EXPECT_EQ(out, delayed(input, out.size()));
}
