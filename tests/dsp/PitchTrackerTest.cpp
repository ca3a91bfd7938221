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

// At the chain's rate, the only one the tracker runs at.
TEST(PitchTracker, FindsTonesInTheRangeOfSpeechAndNothingWrongOutsideIt) {
    for (double hz : {100.0, 200.0}) {
        auto tracker = trackerAt(48000);
        feed(tracker, ts::tone(hz, 48000, 48000));
        EXPECT_NEAR(tracker.smoothedHz(), hz, 0.01) << hz;
    }
    // Above and below its range the tracker reads nothing, or an octave, never a wrong pitch.
    auto high = trackerAt(48000);
    feed(high, ts::tone(440, 48000, 48000));
    EXPECT_TRUE(high.smoothedHz() == 0.0f || std::fabs(high.smoothedHz() - 220.0f) < 5.0f) << high.smoothedHz();
    auto tooLow = trackerAt(48000);
    feed(tooLow, ts::tone(40, 48000, 48000, 0.5f));
    EXPECT_TRUE(tooLow.smoothedHz() == 0.0f || tooLow.smoothedHz() >= 60.0f) << tooLow.smoothedHz();
}

TEST(PitchTracker, SilenceAndNearSilenceChangeNothing) {
    auto tracker = trackerAt(48000);
    feed(tracker, ts::tone(150, 48000, 24000));
    // Flush the tone out of the ring first: the analysis window lags the input.
    feed(tracker, std::vector<float>(PitchTracker::kRingSize * 4, 0.0f));
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

TEST(PitchTracker, OnceSettledIgnoresOutliersAndCreepsTowardsANewPitch) {
    auto tracker = trackerAt(48000);
    feed(tracker, ts::tone(110, 48000, 24000));  // half a second: settled
    const float settled = tracker.smoothedHz();
    EXPECT_NEAR(settled, 110.0f, 0.5f);

    // Far off (a cracking voice, a whistle): ignored for good.
    const auto before = tracker.detections();
    feed(tracker, ts::tone(250, 48000, 48000 * 2));
    EXPECT_EQ(tracker.detections(), before);
    EXPECT_EQ(tracker.smoothedHz(), settled);

    // Within reach the estimate moves over slowly, a third of the way at most in a quarter second.
    feed(tracker, ts::tone(160, 48000, 12000));
    EXPECT_GT(tracker.smoothedHz(), settled);
    EXPECT_LT(tracker.smoothedHz(), 125.0f);
    feed(tracker, ts::tone(160, 48000, 48000 * 4));
    EXPECT_NEAR(tracker.smoothedHz(), 160.0f, 3.0f);
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
