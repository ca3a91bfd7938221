// Files at any rate are rendered through a chain running at 48 kHz: the
// conversion keeps time exactly, and an export keeps its file's rate, channel
// count and length while the pitch tracker sees the true pitch.
#include "engine/OfflineRenderer.h"
#include "media/RateConverter.h"
#include "engine/VoiceChain.h"
#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace parlova;

TEST(ChainRate, ConvertingSourceKeepsTimeAndLevelWhateverThePullSizes) {
    for (auto [from, to] : {std::pair{16000.0, 48000.0}, {44100.0, 48000.0}, {8000.0, 48000.0}, {48000.0, 22050.0},
                            {96000.0, 48000.0}}) {
        // A click at 0.2 s and a tone from 0.5 s, in two channels.
        const size_t frames = static_cast<size_t>(from);
        std::vector<float> click(frames, 0.0f), tone = testaudio::tone(1000, from, frames, 0.5f);
        click[frames / 5] = 1.0f;
        std::fill(tone.begin(), tone.begin() + static_cast<long>(frames / 2), 0.0f);
        testaudio::MemorySource source({click, tone});
        auto converted = RateConvertingSource::create(&source, 2, from, to, 1024);
        ASSERT_TRUE(converted);

        const size_t outFrames = static_cast<size_t>(0.9 * to);
        testaudio::Channels out(2, outFrames);
        std::mt19937 rng(3);
        for (size_t at = 0; at < outFrames;) {
            const int n = static_cast<int>(std::min<size_t>(1 + rng() % 1024, outFrames - at));
            BufferList list = out.list(at, n);
            ASSERT_EQ(converted->pull(list, n), status::ok);
            at += static_cast<size_t>(n);
        }
        const auto peak = std::max_element(out[0].begin(), out[0].end(),
                                           [](float a, float b) { return std::fabs(a) < std::fabs(b); });
        EXPECT_EQ(peak - out[0].begin(), std::lround(0.2 * to)) << from << " -> " << to;
        const size_t toneFrom = static_cast<size_t>(0.6 * to), toneCount = static_cast<size_t>(0.25 * to);
        EXPECT_NEAR(testaudio::fundamental(out[1], to, toneFrom, toneCount), 1000.0, 1.0) << from << " -> " << to;
        EXPECT_NEAR(testaudio::toDb(testaudio::rms(out[1], toneFrom, toneCount) / (0.5 / std::sqrt(2.0))), 0.0, 0.05)
            << from << " -> " << to;
    }
}

TEST(ChainRate, ExportsKeepRateChannelsAndLengthAndAutoPitchHitsItsTarget) {
    // "Middle-Aged Man" pulls a talker onto 108 Hz. Before the chain ran at
    // 48 kHz, the tracker misread other rates: 72 Hz at 8 kHz, 145 at 16, 99 at 44.1.
    const Voice man = Voice::builtIns()[1];
    ASSERT_EQ(man.targetPitch, 108.0f);
    testaudio::TempFolder dir;
    for (auto [rate, channels] :
         {std::pair{8000.0, 1}, {16000.0, 2}, {22050.0, 1}, {44100.0, 2}, {48000.0, 1}, {96000.0, 2}}) {
        testaudio::Audio talker{rate, {}};
        talker.channels.assign(static_cast<size_t>(channels), testaudio::tone(100, rate, static_cast<size_t>(3.0 * rate), 0.3f, testaudio::Wave::vowel));
        const std::string in = dir.file("in.wav"), out = dir.file("out.wav");
        ASSERT_TRUE(testaudio::writeWav(in, talker));
        renderOffline(in, out, man);

        const testaudio::Audio rendered = testaudio::readAudioFile(out);
        EXPECT_EQ(rendered.sampleRate, rate);
        EXPECT_EQ(rendered.channelCount(), channels) << rate;
        EXPECT_EQ(rendered.frames(), talker.frames() + static_cast<int64_t>(std::floor(0.8 * rate))) << rate;
        const double hz = testaudio::fundamental(rendered.channels.back(), rate, static_cast<size_t>(2.0 * rate),
                                                static_cast<size_t>(0.8 * rate));
        RecordProperty("hzAt" + std::to_string(static_cast<int>(rate)), std::to_string(hz));
        EXPECT_NEAR(testaudio::cents(hz, 108.0), 0.0, 35.0) << rate << " Hz file renders at " << hz << " Hz";
    }
}
