// The engine's live rules against a sound server in memory whose clock the
// test runs: what the output plays is measured (pitch, level), with no real
// server and no timing of its own.
#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "support/FakeBackend.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"
#include "voices/VoiceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace parlova;
using namespace parlova::testaudio;

namespace {

constexpr double kRate = 48000;
constexpr double kTalkerHz = 150;

struct Offline {
    QTemporaryDir dir;
    // This process's own live session, apart from any other test's, before the engine looks at it.
    bool privateSession = qputenv("XDG_RUNTIME_DIR", dir.path().toUtf8());
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    FakeBackend server{[] { return fakeMachine(); }};
    BackendJobs jobs;
    VoiceEngine engine{&settings, &server, jobs};

    Offline() {
        // A steady voiced talker for the whole test.
        server.microphone = tone(kTalkerHz, kRate, size_t(60 * kRate), 0.3f, Wave::vowel);
    }
    // Runs the main thread's events until `done` (the job thread opens and closes streams).
    bool settle(const std::function<bool()>& done) { return testpulse::waitUntil(done, 10000); }
    bool goLive() {
        engine.toggleLive();
        return settle([&] { return engine.liveGraph() && server.runningStreams() >= 2; });
    }
    // The output's last second after `seconds` more of the clock, and its pitch.
    std::vector<float> play(double seconds) {
        auto played = server.advance(seconds);
        return played.empty() ? std::vector<float>{} : played.front();
    }
    double pitchCents(const std::vector<float>& out) {
        return cents(fundamental(out, kRate, out.size() - size_t(kRate), size_t(kRate)), kTalkerHz);
    }
};

}  // namespace

TEST(EngineOffline, LiveCarriesTheVoiceAndTheSelectionSwitchesItWhileRunning) {
    Offline o;
    VoiceStore store(&o.settings);
    VoiceSelection selection(o.engine, store);
    ASSERT_TRUE(selection.selectNamed("Old Lady"));
    ASSERT_TRUE(o.goLive());
    // Its vibrato (30 cents) follows the wall clock, which this clock outruns:
    // any phase of it may fall on the measured second.
    EXPECT_NEAR(o.pitchCents(o.play(2.5)), 650, 40);
    // As "control voice next" does: the running chain carries the next voice.
    ASSERT_TRUE(selection.step(1));
    EXPECT_EQ(selection.name(), "Middle-Aged Man");
    const auto out = o.play(2.5);
    // "Middle-Aged Man" aims at 108 Hz whatever the talker's pitch.
    EXPECT_NEAR(fundamental(out, kRate, out.size() - size_t(kRate), size_t(kRate)), 108, 4);
    o.engine.toggleLive();
    EXPECT_TRUE(o.settle([&] { return o.server.runningStreams() == 0; }));
}

TEST(EngineOffline, PushToTalkSilencesTheOutputUntilTheKeyIsHeldAndSwitchesWithoutAClick) {
    Offline o;
    o.engine.set(Voice::natural());
    o.engine.talk().setMode(TalkMode::pushToTalk, false);
    ASSERT_TRUE(o.goLive());
    std::vector<float> heard;
    const auto held = [&](bool on) {
        o.engine.talk().setKeyHeld(on);
        const auto out = o.play(1.5);
        heard.insert(heard.end(), out.begin(), out.end());
        return toDb(rms(out, out.size() - size_t(kRate)));
    };
    EXPECT_LT(held(false), -80);
    EXPECT_GT(held(true), -30);
    EXPECT_LT(held(false), -80);
    // The gain ramps: no sample-to-sample step beyond what the steady voice itself makes.
    const auto largestStep = [&](size_t from, size_t to) {
        float step = 0;
        for (size_t i = from + 1; i < to; ++i) step = std::max(step, std::fabs(heard[i] - heard[i - 1]));
        return step;
    };
    const size_t press = size_t(1.5 * kRate);
    EXPECT_LT(largestStep(0, heard.size()), 1.5f * largestStep(press + size_t(0.5 * kRate), 2 * press));
}
