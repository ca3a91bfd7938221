#include "dsp/PitchTracker.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

// Feeds `samples` in render-sized blocks, as the shifter unit does.
void feed(PitchTracker& tracker, const std::vector<float>& samples, int block = 512) {
    for (size_t at = 0; at < samples.size(); at += static_cast<size_t>(block)) {
        const auto n = std::min<size_t>(static_cast<size_t>(block), samples.size() - at);
        tracker.analyze(samples.data() + at, static_cast<int64_t>(n));
    }
}

PitchTracker trackerAt(double sampleRate) {
    PitchTracker tracker;
    tracker.reset(sampleRate);
    return tracker;
}

}  // namespace

TEST(PitchTracker, NeedsAFullRingBeforeTheFirstAnalysis) {
    auto tracker = trackerAt(48000);
    const auto tone = ts::tone(200, 48000, 680 * 4);
    tracker.analyze(tone.data(), static_cast<int64_t>(tone.size() - 1));
    EXPECT_EQ(tracker.smoothedHz(), 0.0f);
    EXPECT_EQ(tracker.detections(), 0);
    tracker.analyze(tone.data() + tone.size() - 1, 1);  // the ring is full now
    EXPECT_EQ(tracker.detections(), 1);
    EXPECT_NEAR(tracker.smoothedHz(), 200.0f, 0.01f);

    // A reset empties the ring again: the same short run detects nothing.
    tracker.reset(48000);
    tracker.analyze(tone.data(), static_cast<int64_t>(tone.size() - 1));
    EXPECT_EQ(tracker.smoothedHz(), 0.0f);
    EXPECT_EQ(tracker.detections(), 0);
}

TEST(PitchTracker, ReportsTonesOnIntegerLagsOfTheNominalRate) {
    // 200 Hz at 48 kHz: lag 60 of the decimated signal; 96 kHz decimates by 8 and
    // lands on the same lag; 44.1 kHz analyses at 11025 Hz but converts with
    // 12000 (lag 55 -> 218.2 Hz); lags range to 198, so 100 Hz (lag 120) is found.
    const struct { double rate, hz; float expected, tolerance; } cases[] = {
        {48000, 200, 200.0f, 0.01f}, {96000, 200, 200.0f, 0.01f}, {44100, 200, 12000.0f / 55.0f, 0.05f},
        {48000, 100, 100.0f, 0.01f}};
    for (const auto& c : cases) {
        auto tracker = trackerAt(c.rate);
        feed(tracker, ts::tone(c.hz, c.rate, static_cast<size_t>(c.rate)));
        EXPECT_NEAR(tracker.smoothedHz(), c.expected, c.tolerance) << c.rate << " " << c.hz;
    }
    // One analysis every 20 ms once the ring is full.
    auto tracker = trackerAt(48000);
    feed(tracker, ts::tone(200, 48000, 48000));
    EXPECT_EQ(tracker.detections(), 1 + (12000 - 680) / 240);
    // 440 Hz has its period at lag 27, under the smallest lag: never 440.
    auto high = trackerAt(48000);
    feed(high, ts::tone(440, 48000, 48000));
    EXPECT_TRUE(high.smoothedHz() == 0.0f || std::fabs(high.smoothedHz() - 220.0f) < 5.0f) << high.smoothedHz();
    // 40 Hz (lag 300) is out of range.
    auto tooLow = trackerAt(48000);
    feed(tooLow, ts::tone(40, 48000, 48000, 0.5f));
    EXPECT_TRUE(tooLow.smoothedHz() == 0.0f || tooLow.smoothedHz() >= 60.0f) << tooLow.smoothedHz();
}

TEST(PitchTracker, SilenceAndNearSilenceChangeNothing) {
    auto tracker = trackerAt(48000);
    feed(tracker, ts::tone(150, 48000, 24000));
    // Flush the tone out of the ring first: the analysis window lags the input.
    feed(tracker, std::vector<float>(680 * 4, 0.0f));
    const float hz = tracker.smoothedHz();
    const auto detections = tracker.detections();
    const float logPitch = tracker.logPitch();
    ASSERT_GT(detections, 0);

    feed(tracker, std::vector<float>(48000 * 3, 0.0f));
    feed(tracker, ts::tone(300, 48000, 48000, 0.004f));  // mean square 8e-6: under the gate
    EXPECT_EQ(tracker.smoothedHz(), hz);
    EXPECT_EQ(tracker.detections(), detections);
    EXPECT_EQ(tracker.logPitch(), logPitch);

    // A fresh tracker fed only silence never reports a pitch.
    auto quiet = trackerAt(48000);
    feed(quiet, std::vector<float>(48000, 0.0f));
    EXPECT_EQ(quiet.smoothedHz(), 0.0f);
    EXPECT_EQ(quiet.detections(), 0);
}

TEST(PitchTracker, SmoothsSlowlyAndGatesOutliersAfterElevenDetections) {
    auto tracker = trackerAt(48000);
    // About 110 Hz (lag 109 -> 110.09 Hz) for half a second: well over 11 detections.
    feed(tracker, ts::tone(110, 48000, 24000));
    ASSERT_GE(tracker.detections(), 11);
    const float settled = tracker.smoothedHz();
    EXPECT_NEAR(settled, 12000.0f / 109.0f, 0.01f);

    // More than 0.8 octave away (above ~191 Hz or below ~63 Hz): ignored for good.
    const auto before = tracker.detections();
    feed(tracker, ts::tone(250, 48000, 48000 * 2));
    EXPECT_EQ(tracker.detections(), before);
    EXPECT_EQ(tracker.smoothedHz(), settled);

    // Within the gate the estimate creeps over: 3% of the log distance per analysis.
    feed(tracker, ts::tone(160, 48000, 12000));
    const float afterQuarterSecond = tracker.smoothedHz();
    EXPECT_GT(afterQuarterSecond, settled);
    EXPECT_LT(afterQuarterSecond, 125.0f);  // ~11 analyses move it under a third of the way
    feed(tracker, ts::tone(160, 48000, 48000 * 4));
    EXPECT_NEAR(tracker.smoothedHz(), 160.0f, 3.0f);

    // A fresh tracker takes its first detection at face value.
    auto fresh = trackerAt(48000);
    feed(fresh, ts::tone(250, 48000, 680 * 4));
    EXPECT_EQ(fresh.detections(), 1);
    EXPECT_NEAR(fresh.smoothedHz(), 12000.0f / 48.0f, 0.01f);
}

TEST(PitchTracker, TrackingIsIndependentOfBlockSize) {
    const auto tone = ts::tone(180, 48000, 48000);
    auto a = trackerAt(48000), b = trackerAt(48000);
    feed(a, tone, 1);
    feed(b, tone, 4096);
    EXPECT_EQ(a.detections(), b.detections());
    EXPECT_EQ(a.smoothedHz(), b.smoothedHz());
}

TEST(PitchTracker, FindsTheTypicalPitchOfSynthesizedSpeech) {
    const std::string text = "The quick brown fox jumps over the lazy dog. We were away a year ago, "
                             "and now we are home again for a while.";
    const auto low = ts::speech(text, 48000, "-p 20");
    const auto high = ts::speech(text, 48000, "-p 80");
    if (low.channels.empty() || high.channels.empty()) GTEST_SKIP() << "espeak-ng or sox not available";

    auto lowTracker = trackerAt(48000), highTracker = trackerAt(48000);
    feed(lowTracker, low.channels[0]);
    feed(highTracker, high.channels[0]);
    // A male synthetic voice: a typical pitch inside the range of speech, and a
    // higher pitch setting reads higher.
    EXPECT_GT(lowTracker.detections(), 20);
    EXPECT_GT(lowTracker.smoothedHz(), 70.0f);
    EXPECT_LT(lowTracker.smoothedHz(), 200.0f);
    EXPECT_GT(highTracker.smoothedHz(), lowTracker.smoothedHz() * 1.1f);
    EXPECT_LT(highTracker.smoothedHz(), 300.0f);
}
