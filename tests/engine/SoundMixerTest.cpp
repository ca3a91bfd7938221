// The board's mixer on buffers: the voice under a sound is lowered by the
// sound's ducking and comes back after it, each sound plays at its own level
// to its end, a stop fades out, and every sound is handed back to the owner
// (never freed on the audio thread) whatever happens.
#include "engine/SoundMixer.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

using namespace parlova;

namespace {

constexpr double kRate = 48000;
constexpr int kBlock = 256;

std::shared_ptr<SoundBuffer> toneSound(double hz, double seconds, float amplitude = 0.5f) {
    auto sound = std::make_shared<SoundBuffer>();
    sound->left = testaudio::tone(hz, kRate, static_cast<size_t>(seconds * kRate), amplitude);
    sound->right = sound->left;
    return sound;
}

// Runs the mixer over `seconds` of a steady voice (all ones, so the ducking
// gain is what is left after subtracting the sounds) and returns the left side.
struct Mixed {
    std::vector<float> voice;  // the ducking gain, sample by sample
    std::vector<float> out;
};
Mixed mixFor(SoundMixer& mixer, double seconds, const std::function<void(int block)>& beforeBlock = {}) {
    Mixed run;
    const int blocks = static_cast<int>(seconds * kRate / kBlock);
    std::vector<float> left(kBlock), right(kBlock);
    for (int b = 0; b < blocks; ++b) {
        if (beforeBlock) beforeBlock(b);
        std::fill(left.begin(), left.end(), 0.0f);
        std::fill(right.begin(), right.end(), 1.0f);
        mixer.mix(left.data(), right.data(), kBlock);
        run.out.insert(run.out.end(), left.begin(), left.end());
        run.voice.insert(run.voice.end(), right.begin(), right.end());
    }
    return run;
}

}  // namespace

TEST(SoundMixer, DucksTheVoiceWhileASoundPlaysAtItsLevelAndEndsWithIt) {
    SoundMixer mixer(kRate);
    auto sound = toneSound(1000, 0.5);
    ASSERT_TRUE(mixer.play(sound, 0.5f, std::pow(10.0f, -12.0f / 20)));
    const Mixed run = mixFor(mixer, 1.5);

    // The sound, at half its level, for exactly its length, then nothing.
    EXPECT_NEAR(testaudio::toDb(testaudio::rms(run.out, 0, 24000) / testaudio::rms(sound->left)), -6.02, 0.05);
    EXPECT_EQ(testaudio::peak({run.out.begin() + 24000, run.out.end()}), 0.0);
    // The voice channel here carries ones plus the sound: take the sound away again.
    std::vector<float> duck(run.voice.size());
    for (size_t i = 0; i < duck.size(); ++i) duck[i] = run.voice[i] - (i < 24000 ? 0.5f * sound->right[i] : 0.0f);
    EXPECT_NEAR(testaudio::toDb(duck[12000]), -12.0, 0.01);        // down while it plays,
    EXPECT_LT(duck[24000 + 2400], 0.9f);                           // easing back after it,
    EXPECT_NEAR(duck.back(), 1.0f, 1e-6);                           // and whole again.
    for (size_t i = 1; i < duck.size(); ++i) ASSERT_LT(std::abs(duck[i] - duck[i - 1]), 0.01f) << i;  // no step

    EXPECT_FALSE(mixer.collect());
    EXPECT_EQ(sound.use_count(), 1);
}

TEST(SoundMixer, NoDuckingLeavesTheVoiceAndSoundsAddUp) {
    SoundMixer mixer(kRate);
    mixer.play(toneSound(500, 0.2, 0.25f), 1.0f, 1.0f);
    mixer.play(toneSound(500, 0.2, 0.25f), 1.0f, 1.0f);
    const Mixed run = mixFor(mixer, 0.3);
    EXPECT_NEAR(testaudio::peak(run.out), 0.5, 0.001);  // two in phase: twice one
    for (size_t i = 0; i < run.voice.size(); i += 97)
        ASSERT_NEAR(run.voice[i] - (i < 9600 ? run.out[i] : 0.0f), 1.0f, 1e-5) << i;
}

TEST(SoundMixer, StopFadesOutWithoutAClickAndHandsTheSoundBack) {
    SoundMixer mixer(kRate);
    auto sound = toneSound(200, 5.0, 0.8f);
    mixer.play(sound, 1.0f, 0.5f);
    const Mixed run = mixFor(mixer, 1.0, [&](int block) {
        if (block == 80) mixer.stopAll();
    });
    const size_t stopAt = 80 * kBlock;
    const size_t fade = static_cast<size_t>(SoundMixer::kStopFadeSeconds * kRate);
    EXPECT_GT(testaudio::peak({run.out.begin() + stopAt - 2000, run.out.begin() + stopAt}), 0.7);
    EXPECT_EQ(testaudio::peak({run.out.begin() + stopAt + fade, run.out.end()}), 0.0);
    // Sample to sample the fade moves no more than the tone itself does.
    const float maxStep = 0.8f * 2 * 3.1416f * 200 / kRate * 1.05f;
    for (size_t i = stopAt; i < stopAt + fade + 1; ++i) ASSERT_LT(std::abs(run.out[i] - run.out[i - 1]), maxStep) << i;
    EXPECT_FALSE(mixer.collect());
    EXPECT_EQ(sound.use_count(), 1);
}

TEST(SoundMixer, RapidPlaysTakeTheOldestPlaceAndHoldNothingAfterwards) {
    SoundMixer mixer(kRate);
    std::vector<std::shared_ptr<SoundBuffer>> sounds;
    for (int i = 0; i < 100; ++i) sounds.push_back(toneSound(300 + i, 0.3, 0.01f));
    // A hundred plays, one per block: never more than kSlots at once.
    const Mixed run = mixFor(mixer, 1.5, [&](int block) {
        if (block < 100) {
            ASSERT_TRUE(mixer.play(sounds[static_cast<size_t>(block)], 1.0f, 0.5f));
        }
    });
    EXPECT_LT(testaudio::peak(run.out), 0.01 * SoundMixer::kSlots + 1e-4);
    EXPECT_FALSE(mixer.collect());
    for (const auto& sound : sounds) EXPECT_EQ(sound.use_count(), 1);
}

TEST(SoundMixer, AnAudioThreadMixingWhileTheOwnerPlaysStopsAndCollectsNeverOutlivesASound) {
    SoundMixer mixer(kRate);
    std::atomic<bool> running{true};
    std::thread audio([&] {
        std::vector<float> left(kBlock), right(kBlock);
        while (running.load()) {
            std::fill(left.begin(), left.end(), 1.0f);
            std::fill(right.begin(), right.end(), 1.0f);
            mixer.mix(left.data(), right.data(), kBlock);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    std::vector<std::shared_ptr<SoundBuffer>> sounds;
    for (int i = 0; i < 200; ++i) {
        sounds.push_back(toneSound(400, 0.01 * (1 + i % 7)));
        mixer.play(sounds.back(), 0.5f, 0.5f);
        if (i % 25 == 0) mixer.stopAll();
        mixer.collect();
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (mixer.collect() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    running = false;
    audio.join();
    EXPECT_FALSE(mixer.collect());
    for (const auto& sound : sounds) EXPECT_EQ(sound.use_count(), 1);
}
