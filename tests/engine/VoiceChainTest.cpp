// What the chain does to real audio: pitch, level, the delay it adds, and
// edits made while it runs.
#include "engine/ActiveChains.h"
#include "media/RateConverter.h"
#include "support/RealSpeech.h"
#include "engine/VoiceChain.h"
#include "engine/VoiceStage.h"
#include "engine/VoiceEngine.h"
#include "support/FakeBackend.h"
#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <thread>

using namespace parlova;

namespace {

constexpr double kRate = 48000;

struct ChainFixture {
    testaudio::MemorySource source;
    VoiceChain chain;
    explicit ChainFixture(const Voice& voice, std::vector<float> input = std::vector<float>(48000, 0.0f))
        : source({std::move(input)}), chain(voice, &source, {kRate, 1}) {}

    // Renders `frames` in 256-frame blocks, modulating by rendered time.
    std::vector<std::vector<float>> render(size_t frames) {
        std::vector<std::vector<float>> out(2, std::vector<float>(frames));
        for (size_t at = 0; at < frames; at += 256) {
            const int n = static_cast<int>(std::min<size_t>(256, frames - at));
            chain.modulate(static_cast<double>(at) / kRate);
            BufferList list;
            list.count = 2;
            list.data[0] = out[0].data() + at;
            list.data[1] = out[1].data() + at;
            EXPECT_EQ(chain.render(list, n), status::ok);
        }
        return out;
    }
};

}  // namespace

TEST(VoiceChain, EditsWhileRunningDoNotClick) {
    // Live, an edit lands between two modulation ticks: after a block's
    // modulate(t), before it renders. Neither the tremolo nor the gain may jump.
    const std::string path = testaudio::speechRecording();
    if (path.empty()) GTEST_SKIP() << "pocketsphinx-testdata is not installed";
    const testaudio::Audio speech = testaudio::readAudioFile(path);
    Voice base = Voice::builtIns()[1];  // "Middle-Aged Man", a fixed shift and a tremolo
    base.targetPitch = 0;
    base.tremoloDepth = 0.3f;

    auto render = [&](const std::function<void(VoiceChain&, int block)>& edit) {
        testaudio::MemorySource file(speech.channels);
        auto atChainRate = RateConvertingSource::create(&file, 1, speech.sampleRate, kChainSampleRate, 256);
        VoiceChain chain(base, atChainRate.get(), {kChainSampleRate, 1});
        const size_t frames = static_cast<size_t>(speech.seconds() * kChainSampleRate) + kChainSampleRate / 2;
        std::vector<float> left(frames), right(frames);
        for (size_t at = 0, block = 0; at + 256 <= frames; at += 256, ++block) {
            chain.modulate(static_cast<double>(at) / kChainSampleRate);
            edit(chain, static_cast<int>(block));
            BufferList list;
            list.count = 2;
            list.data[0] = left.data() + at;
            list.data[1] = right.data() + at;
            EXPECT_EQ(chain.render(list, 256), status::ok);
        }
        double step = 0;
        for (size_t i = 1; i < frames; ++i) step = std::max(step, std::fabs(static_cast<double>(left[i]) - left[i - 1]));
        return step;
    };

    const double steady = render([](VoiceChain&, int) {});
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const double edited = render([&](VoiceChain& chain, int block) {
        if (block < 20 || block >= 220) return;
        // Wide swings between two settings, never louder than the base voice.
        const bool low = block % 2 == 0;
        Voice v = base;
        v.pitch = base.pitch - 150 + 300 * unit(rng);
        v.gain = low ? base.gain - 18 : base.gain;
        v.tremoloDepth = low ? 0.6f : 0.05f;
        chain.apply(v);
    });
    RecordProperty("maxStepRatio", std::to_string(edited / steady));
    EXPECT_GT(steady, 0.0);
    EXPECT_LT(edited, 2.0 * steady) << "largest step " << edited << " with edits, " << steady << " without";
}

TEST(VoiceChain, NaturalVoiceKeepsPitchAndLevel) {
    const auto input = testaudio::tone(180, kRate, static_cast<size_t>(2.0 * kRate), 0.3f, testaudio::Wave::saw);
    ChainFixture f(Voice::natural(), input);
    const auto out = f.render(input.size());
    const size_t from = static_cast<size_t>(kRate), count = static_cast<size_t>(0.8 * kRate);
    EXPECT_NEAR(testaudio::cents(testaudio::fundamental(out[0], kRate, from, count), 180), 0.0, 3.0);
    EXPECT_NEAR(testaudio::toDb(testaudio::rms(out[0], from, count) / testaudio::rms(input, from, count)), 0.0, 1.0);
}

TEST(VoiceChain, SilenceAfterAVoiceDecaysToZeroNotToDenormals) {
    // Every voice's reverb, filters and shifter decay towards zero once the
    // microphone falls silent; in denormal range each operation costs some
    // twenty times as much. The chain flushes them while it renders and
    // leaves the caller's thread as it found it.
    for (const Voice& voice : Voice::builtIns()) {
        SCOPED_TRACE(voice.name.toStdString());
        auto input = testaudio::tone(180, kRate, static_cast<size_t>(0.5 * kRate), 0.3f, testaudio::Wave::saw);
        input.resize(static_cast<size_t>(6 * kRate), 0.0f);
        ChainFixture f(voice, input);
        const auto out = f.render(input.size());
        EXPECT_FALSE(DenormalsFlushed::active());
        const auto denormal = [](float v) { return std::fpclassify(v) == FP_SUBNORMAL; };
        EXPECT_EQ(std::count_if(out[0].begin(), out[0].end(), denormal), 0);
    }
}

TEST(VoiceChain, ModulatorDrivesActiveChainsAndBypassSwapsTheVoice) {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("s.ini"), QSettings::IniFormat);
    // A server in memory: the engine drives its chains as with a real one.
    testaudio::FakeBackend server([] { return testaudio::fakeMachine(); });
    BackendJobs jobs;
    VoiceEngine engine(&settings, &server, jobs);
    testaudio::MemorySource source({std::vector<float>(16, 0.0f)});
    auto chain = std::make_shared<VoiceChain>(Voice::natural(), &source, AudioFormat{kRate, 1});
    engine.activeChains().setPlay(chain);

    Voice lady = Voice::builtIns()[0];
    engine.set(lady);
    EXPECT_EQ(chain->voice(), lady);
    engine.setBypass(true);
    EXPECT_EQ(chain->voice(), Voice::natural());
    lady.pitch = 100;
    engine.set(lady);  // still natural while bypassed
    EXPECT_EQ(chain->voice(), Voice::natural());
    engine.setBypass(false);
    EXPECT_EQ(chain->voice(), lady);

    // The modulator's 5 ms ticks reach the chain: the vibrato moves the pitch.
    std::set<float> seen;
    for (int i = 0; i < 40; ++i) {
        seen.insert(chain->shifter().pitchSemitones.load());
        std::this_thread::sleep_for(std::chrono::milliseconds(6));
    }
    EXPECT_GT(seen.size(), 5u);

    // A voice that doesn't move with time lets the modulator rest; a moving one wakes it at once.
    engine.set(Voice::natural());
    std::set<double> ticks;
    for (int i = 0; i < 40; ++i) {
        ticks.insert(chain->modulationTime());
        std::this_thread::sleep_for(std::chrono::milliseconds(6));
    }
    EXPECT_LE(ticks.size(), 3u);
    engine.set(lady);
    seen.clear();
    for (int i = 0; i < 20; ++i) {
        seen.insert(chain->shifter().pitchSemitones.load());
        std::this_thread::sleep_for(std::chrono::milliseconds(6));
    }
    EXPECT_GT(seen.size(), 5u);
    engine.activeChains().setPlay(nullptr);
}

// The delay the live readout counts for the voice stage is the delay the
// chain really adds: a burst comes out that much later, shifted or not.
TEST(VoiceChain, TheDelayItCountsIsTheDelayItAdds) {
    std::vector<float> input(static_cast<size_t>(1.5 * kRate), 0.0f);
    const size_t burstAt = static_cast<size_t>(0.5 * kRate);
    const auto burst = testaudio::tone(400, kRate, static_cast<size_t>(0.05 * kRate), 0.5f);
    std::copy(burst.begin(), burst.end(), input.begin() + static_cast<long>(burstAt));
    for (const Voice& voice : {Voice::natural(), Voice::builtIns().front()}) {
        SCOPED_TRACE(voice.name.toStdString());
        ChainFixture f(voice, input);
        const auto out = f.render(input.size());
        const double peak = testaudio::peak(out[0]);
        size_t onset = 0;
        while (onset < out[0].size() && std::fabs(out[0][onset]) < 0.25f * peak) ++onset;
        const double addedMs = (static_cast<double>(onset) - static_cast<double>(burstAt)) / kRate * 1000;
        EXPECT_NEAR(addedMs, EffectVoiceStage::latencySeconds(f.chain) * 1000, 3.0);
    }
}
