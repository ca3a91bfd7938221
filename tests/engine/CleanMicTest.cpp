// The clean-mic stage on real speech with steady room noise about 10 dB below
// it, rendered offline through the natural voice with and without the stage:
// the noise between words must drop by at least 10 dB while the speech keeps
// its level and its pitch. Also: the stage adds no delay of its own.
#include "engine/CleanMic.h"
#include "engine/OfflineRenderer.h"
#include "support/MemorySource.h"
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

    // Speech, a gap, speech; then fan-like noise (low-passed white) 10 dB below the speech.
    std::vector<float> clean = first.channels[0];
    const size_t gapStart = clean.size();
    clean.resize(clean.size() + static_cast<size_t>(kGapSeconds * kRate), 0.0f);
    const size_t secondStart = clean.size();
    clean.insert(clean.end(), second.channels[0].begin(), second.channels[0].end());
    const double speechDb = measureSpeech(clean, 0, clean.size()).voicedDb;
    auto noise = ts::whiteNoise(clean.size(), 1.0f, 7);
    float lowPassed = 0;
    for (float& n : noise) n = lowPassed += 0.3f * (n - lowPassed);
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
    std::printf("noise between words -%.1f dB (from %.1f dBFS), speech %.1f dBFS\n", noiseDrop, ts::toDb(ts::rms(plain, gapFrom, gapCount)), speechDb);
}

TEST(CleanMic, OutputLinesUpWithInput) {
    // A tone burst after silence comes out where it went in, onset intact,
    // whatever the pull sizes.
    std::vector<float> input(static_cast<size_t>(0.5 * kRate), 0.0f);
    const size_t onset = static_cast<size_t>(0.2 * kRate) + 17;
    const auto burst = ts::tone(300, kRate, static_cast<size_t>(0.2 * kRate), 0.3f);
    std::copy(burst.begin(), burst.end(), input.begin() + static_cast<long>(onset));
    ts::MemorySource source({input});
    CleanMicSource clean(source, 1, kRate, std::make_shared<CleanMicControl>(), 256);
    std::vector<float> out;
    std::vector<float> block(1000);
    for (int frames : {1, 333, 1000, 64, 999}) {
        for (int i = 0; i < 8 && out.size() + static_cast<size_t>(frames) <= input.size(); ++i) {
            BufferList list;
            list.count = 1;
            list.data[0] = block.data();
            ASSERT_EQ(clean.pull(list, frames), status::ok);
            out.insert(out.end(), block.begin(), block.begin() + frames);
        }
    }
    ASSERT_GT(out.size(), onset + 480);
    const size_t firstLoud = static_cast<size_t>(
        std::find_if(out.begin(), out.end(), [](float s) { return std::fabs(s) > 0.05f; }) - out.begin());
    EXPECT_NEAR(static_cast<double>(firstLoud), static_cast<double>(onset), 48.0);
    // The first 5 ms of the burst pass at (nearly) full level.
    EXPECT_GT(ts::rms(out, onset, 240), 0.7 * ts::rms(input, onset, 240));
}
