// The clean-mic stage on real speech with recorded-style noise, rendered
// offline through the natural voice: the noise between words must drop by at
// least 20 dB against the same render without the stage, while the words keep
// their level and pitch against a render of the speech without noise. And the
// first syllable after silence stays whole.
#include "engine/CleanMic.h"
#include "engine/OfflineRenderer.h"
#include "support/RealSpeech.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

constexpr double kRate = 48000;
constexpr double kGapSeconds = 0.8;

// Level of the voiced 20 ms frames (within 25 dB of the loudest) of [from, from + count).
double voicedDb(const std::vector<float>& s, size_t from, size_t count) {
    const size_t frame = static_cast<size_t>(0.02 * kRate);
    std::vector<double> levels;
    for (size_t at = from; at + frame <= from + count; at += frame) levels.push_back(ts::toDb(ts::rms(s, at, frame)));
    const double loudest = *std::max_element(levels.begin(), levels.end());
    double power = 0;
    int voiced = 0;
    for (double level : levels)
        if (level >= loudest - 25) power += std::pow(10.0, level / 10.0), ++voiced;
    return 10.0 * std::log10(power / voiced);
}

// Pink noise (Voss-McCartney: rows of held random values, row k renewed every
// 2^k samples) with a 50 Hz mains hum and its odd harmonics, the hum 6 dB
// below the noise.
std::vector<float> pinkNoiseAndHum(size_t frames) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    float rows[16] = {};
    std::vector<float> out(frames);
    for (size_t i = 0; i < frames; ++i) {
        float sum = 0;
        for (int k = 0; k < 16; ++k) {
            if (i % (size_t{1} << k) == 0) rows[k] = uniform(rng);
            sum += rows[k];
        }
        out[i] = sum;
    }
    const double noise = ts::rms(out);
    for (size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / kRate;
        double hum = 0;
        for (int h = 1; h <= 7; h += 2) hum += std::sin(2 * M_PI * 50 * h * t) / h;
        out[i] += static_cast<float>(0.5 * noise * std::sqrt(2.0) * hum);
    }
    return out;
}

// Key clicks: 3 ms broadband bursts with a fast decay, at uneven times 60 to
// 250 ms apart, on silence.
std::vector<float> keyClicks(size_t frames) {
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::uniform_int_distribution<size_t> gap(static_cast<size_t>(0.06 * kRate), static_cast<size_t>(0.25 * kRate));
    std::vector<float> out(frames, 0.0f);
    const size_t length = static_cast<size_t>(0.003 * kRate);
    for (size_t at = gap(rng); at + length < frames; at += gap(rng))
        for (size_t i = 0; i < length; ++i)
            out[at + i] = uniform(rng) * std::exp(-static_cast<float>(i) / static_cast<float>(length / 4));
    return out;
}

struct Renders {
    std::vector<float> plain, cleaned;
};

Renders render(const std::vector<float>& input, bool plainOnly = false) {
    ts::TempFolder folder;
    EXPECT_TRUE(ts::writeWav(folder.file("in.wav"), ts::spread(input, kRate)));
    renderOffline(folder.file("in.wav"), folder.file("plain.wav"), Voice::natural());
    Renders r{ts::readAudioFile(folder.file("plain.wav")).channels[0], {}};
    if (plainOnly) return r;
    renderOffline(folder.file("in.wav"), folder.file("cleaned.wav"), Voice::natural(), {},
                  std::make_shared<CleanMicControl>());
    r.cleaned = ts::readAudioFile(folder.file("cleaned.wav")).channels[0];
    return r;
}

// Median pitch change, in cents, from `reference` to `s` over the frames in
// which the reference is clearly voiced, frame by frame.
double pitchChangeCents(const std::vector<float>& reference, const std::vector<float>& s, size_t from, size_t count) {
    const size_t frame = static_cast<size_t>(0.02 * kRate);
    double loudest = 0;
    for (size_t at = from; at + frame <= from + count; at += frame) loudest = std::max(loudest, ts::rms(reference, at, frame));
    std::vector<double> changes;
    for (size_t at = from; at + 3 * frame <= std::min(from + count, s.size()); at += frame) {
        if (ts::rms(reference, at, frame) < loudest / 4) continue;
        const double before = ts::fundamental(reference, kRate, at, 2 * frame, 70, 400);
        const double after = before > 0 ? ts::fundamental(s, kRate, at, 2 * frame, before / 1.2, before * 1.2) : 0;
        if (after > 0) changes.push_back(ts::cents(after, before));
    }
    return changes.empty() ? 1e9 : ts::median(changes);
}

}  // namespace

TEST(CleanMic, QuietsNoiseAndClicksBetweenWordsAndKeepsTheWords) {
  for (const ts::Talker talker : {ts::Talker::lowMale, ts::Talker::female}) {
    SCOPED_TRACE(ts::talkerName(talker));
    const ts::Audio speech = ts::realSpeech(talker, kRate);
    if (speech.channels.empty()) GTEST_SKIP() << "The speech recording (pocketsphinx-testdata) or sox is missing.";

    // The recording, a gap, the recording again.
    std::vector<float> clean = speech.channels[0];
    const size_t gapStart = clean.size();
    clean.resize(clean.size() + static_cast<size_t>(kGapSeconds * kRate), 0.0f);
    const size_t secondStart = clean.size();
    clean.insert(clean.end(), speech.channels[0].begin(), speech.channels[0].end());
    const double speechDb = voicedDb(clean, 0, clean.size());
    const Renders reference = render(clean, true);

    struct Case {
        const char* name;
        std::vector<float> noise;
        double belowSpeechDb;  // the noise's RMS under the voiced speech
        double wordLevelDb;    // how far the words' level may move
    };
    // The clicks fall on words too, where they must go without taking the words with them.
    const Case cases[] = {{"pink noise and hum", pinkNoiseAndHum(clean.size()), 15, 1.0},
                          {"key clicks", keyClicks(clean.size()), 20, 1.0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const double gain = std::pow(10.0, (speechDb - c.belowSpeechDb) / 20.0) / ts::rms(c.noise);
        std::vector<float> noisy(clean.size());
        for (size_t i = 0; i < noisy.size(); ++i) noisy[i] = clean[i] + static_cast<float>(gain) * c.noise[i];
        const Renders r = render(noisy);

        // The middle of the gap, clear of the chain's delay and the gate's hold.
        const size_t gapFrom = gapStart + static_cast<size_t>(0.45 * kRate), gapCount = static_cast<size_t>(0.3 * kRate);
        const double noiseDrop =
            ts::toDb(ts::rms(r.plain, gapFrom, gapCount)) - ts::toDb(ts::rms(r.cleaned, gapFrom, gapCount));
        EXPECT_GE(noiseDrop, 20.0);
        std::printf("%s: noise between words -%.1f dB\n", c.name, noiseDrop);
        for (auto [from, count] : {std::pair{size_t{0}, gapStart}, std::pair{secondStart, clean.size() - secondStart}}) {
            const double levelChange = voicedDb(r.cleaned, from, count) - voicedDb(reference.plain, from, count);
            EXPECT_NEAR(levelChange, 0.0, c.wordLevelDb);
            const double pitchChange = pitchChangeCents(reference.plain, r.cleaned, from, count);
            EXPECT_NEAR(pitchChange, 0.0, 10.0);
            std::printf("  words: level %+.2f dB, pitch %+.1f cents against the speech without noise\n",
                        levelChange, pitchChange);
        }
    }
  }
}

TEST(CleanMic, KeepsTheFirstSyllableWhole) {
    // A vowel after silence: the cleaned render starts at the same sample as
    // the plain one (the stage adds no delay and the gate is open in time).
    // The denoiser takes a frame or two to recognise a voice, so the first
    // 10 ms come through lower; from 20 ms on the vowel is whole.
    std::vector<float> input(static_cast<size_t>(0.5 * kRate), 0.0f);
    const auto vowel = ts::tone(150, kRate, static_cast<size_t>(0.3 * kRate), 0.3f, ts::Wave::vowel);
    input.insert(input.end(), vowel.begin(), vowel.end());
    const auto [plain, cleaned] = render(input);
    const auto onset = static_cast<size_t>(
        std::find_if(plain.begin(), plain.end(), [](float s) { return std::fabs(s) > 0.01f; }) - plain.begin());
    ASSERT_LT(onset, plain.size());
    const size_t tenMs = static_cast<size_t>(0.01 * kRate);
    EXPECT_GT(ts::rms(cleaned, onset, tenMs), 0.3 * ts::rms(plain, onset, tenMs));
    EXPECT_GT(ts::rms(cleaned, onset + 2 * tenMs, 5 * tenMs), 0.8 * ts::rms(plain, onset + 2 * tenMs, 5 * tenMs));
    EXPECT_LT(ts::rms(cleaned, 0, onset - tenMs), 1e-4);
}

