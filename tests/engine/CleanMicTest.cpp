// The clean-mic stage on real speech with steady room noise about 10 dB below
// it, rendered offline through the natural voice with and without the stage:
// the noise between words must drop by at least 10 dB while the speech keeps
// its level and its pitch. And the first syllable after silence stays whole.
#include "engine/CleanMic.h"
#include "engine/OfflineRenderer.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

constexpr double kRate = 48000;
constexpr double kGapSeconds = 0.8;

// Levels of the voiced 20 ms frames (within 25 dB of the loudest) and their median pitch.
struct SpeechFigures {
    double voicedDb = 0, pitchHz = 0;
};

SpeechFigures measureSpeech(const std::vector<float>& s, size_t from, size_t count) {
    const size_t frame = static_cast<size_t>(0.02 * kRate);
    std::vector<double> levels;
    for (size_t at = from; at + frame <= from + count; at += frame) levels.push_back(ts::toDb(ts::rms(s, at, frame)));
    const double loudest = *std::max_element(levels.begin(), levels.end());
    double power = 0;
    int voiced = 0;
    std::vector<double> pitches;
    for (size_t i = 0; i < levels.size(); ++i) {
        if (levels[i] < loudest - 25) continue;
        const size_t at = from + i * frame;
        power += std::pow(10.0, levels[i] / 10.0);
        ++voiced;
        if (levels[i] > loudest - 12 && at + 3 * frame < s.size())
            if (double hz = ts::fundamental(s, kRate, at, 2 * frame, 70, 400); hz > 0) pitches.push_back(hz);
    }
    std::nth_element(pitches.begin(), pitches.begin() + static_cast<long>(pitches.size() / 2), pitches.end());
    return {10.0 * std::log10(power / voiced), pitches.empty() ? 0.0 : pitches[pitches.size() / 2]};
}

}  // namespace

TEST(CleanMic, QuietsNoiseBetweenWordsAndKeepsSpeech) {
    const auto first = ts::speech("Please pass me the blue cup.", kRate);
    const auto second = ts::speech("Thank you, that is kind.", kRate);
    if (first.channels.empty() || second.channels.empty()) GTEST_SKIP() << "espeak-ng is not installed.";

    // Speech, a gap, speech; then room noise 10 dB below the speech: a fan
    // (low-passed white noise) and key clicks.
    std::vector<float> clean = first.channels[0];
    const size_t gapStart = clean.size();
    clean.resize(clean.size() + static_cast<size_t>(kGapSeconds * kRate), 0.0f);
    const size_t secondStart = clean.size();
    clean.insert(clean.end(), second.channels[0].begin(), second.channels[0].end());
    const double speechDb = measureSpeech(clean, 0, clean.size()).voicedDb;
    auto noise = ts::whiteNoise(clean.size(), 1.0f, 7);
    float lowPassed = 0;
    for (float& n : noise) n = lowPassed += 0.3f * (n - lowPassed);
    const auto clicks = ts::whiteNoise(clean.size(), 1.0f, 11);
    for (size_t at = 0; at + 192 < noise.size(); at += static_cast<size_t>(0.18 * kRate))
        for (size_t i = 0; i < 192; ++i) noise[at + i] += 4.0f * clicks[at + i] * std::exp(-static_cast<float>(i) / 48.0f);
    const double noiseGain = std::pow(10.0, (speechDb - 10.0) / 20.0) / ts::rms(noise);
    std::vector<float> noisy(clean.size());
    for (size_t i = 0; i < noisy.size(); ++i) noisy[i] = clean[i] + static_cast<float>(noiseGain) * noise[i];

    ts::TempFolder folder;
    ASSERT_TRUE(ts::writeWav(folder.file("noisy.wav"), ts::spread(noisy, kRate)));
    renderOffline(folder.file("noisy.wav"), folder.file("plain.wav"), Voice::natural());
    renderOffline(folder.file("noisy.wav"), folder.file("cleaned.wav"), Voice::natural(), {},
                  std::make_shared<CleanMicControl>());
    const auto plain = ts::readAudioFile(folder.file("plain.wav")).channels[0];
    const auto cleaned = ts::readAudioFile(folder.file("cleaned.wav")).channels[0];

    // The middle of the gap, clear of the chain's delay and the gate's hold.
    const size_t gapFrom = gapStart + static_cast<size_t>(0.45 * kRate), gapCount = static_cast<size_t>(0.25 * kRate);
    const double noiseDrop = ts::toDb(ts::rms(plain, gapFrom, gapCount)) - ts::toDb(ts::rms(cleaned, gapFrom, gapCount));
    EXPECT_GE(noiseDrop, 10.0);
    for (auto [from, count] : {std::pair{size_t{0}, gapStart}, std::pair{secondStart, clean.size() - secondStart}}) {
        const auto before = measureSpeech(plain, from, count), after = measureSpeech(cleaned, from, count);
        EXPECT_NEAR(after.voicedDb, before.voicedDb, 3.0);
        EXPECT_NEAR(ts::cents(after.pitchHz, before.pitchHz), 0.0, 50.0);
        std::printf("speech level %+.2f dB, pitch %+.1f cents\n", after.voicedDb - before.voicedDb,
                    ts::cents(after.pitchHz, before.pitchHz));
    }
    std::printf("noise between words -%.1f dB\n", noiseDrop);
}

TEST(CleanMic, KeepsTheFirstSyllableWhole) {
    // A vowel after silence: the cleaned render starts as loud as the plain
    // one, at the same sample (the stage adds no delay and the gate is open
    // in time).
    std::vector<float> input(static_cast<size_t>(0.5 * kRate), 0.0f);
    const auto vowel = ts::tone(150, kRate, static_cast<size_t>(0.3 * kRate), 0.3f, ts::Wave::vowel);
    input.insert(input.end(), vowel.begin(), vowel.end());
    ts::TempFolder folder;
    ASSERT_TRUE(ts::writeWav(folder.file("vowel.wav"), ts::spread(input, kRate)));
    renderOffline(folder.file("vowel.wav"), folder.file("plain.wav"), Voice::natural());
    renderOffline(folder.file("vowel.wav"), folder.file("cleaned.wav"), Voice::natural(), {},
                  std::make_shared<CleanMicControl>());
    const auto plain = ts::readAudioFile(folder.file("plain.wav")).channels[0];
    const auto cleaned = ts::readAudioFile(folder.file("cleaned.wav")).channels[0];
    const auto onset = static_cast<size_t>(
        std::find_if(plain.begin(), plain.end(), [](float s) { return std::fabs(s) > 0.01f; }) - plain.begin());
    ASSERT_LT(onset, plain.size());
    const size_t tenMs = static_cast<size_t>(0.01 * kRate);
    EXPECT_GT(ts::rms(cleaned, onset, tenMs), 0.7 * ts::rms(plain, onset, tenMs));
    EXPECT_LT(ts::rms(cleaned, 0, onset - tenMs), 1e-4);
}
