// Live routing rules over hand-made device tables, and the live session's
// start and retry logic against a fake sound server.
#include "engine/LiveRouting.h"
#include "engine/LiveSession.h"
#include "common/VoiceEngineError.h"
#include "support/FakeBackend.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

using namespace parlova;

namespace {

DeviceTable machine() { return testaudio::fakeMachine(); }

std::string routeError(const DeviceTable& table, const RouteRequest& request) {
    return testaudio::errorOf([&] { routeLive(table, request); }, "");
}

}  // namespace

TEST(LiveRouting, DevicesForEachRequest) {
    struct Case {
        const char* what;
        RouteRequest request;
        uint32_t mic, out;
        std::optional<uint32_t> monitor;
    };
    const uint32_t speakers = 3 | kSinkIdBit, headset = 4 | kSinkIdBit;
    const Case cases[] = {
        {"defaults", {}, 1, speakers, {}},
        {"chosen devices", {false, false, "headset_mic", "headset", ""}, 2, headset, {}},
        {"the cable is never the microphone", {false, false, "parlova_mic", "", ""}, 1, speakers, {}},
        {"unknown output falls back to the default", {false, false, "", "gone", ""}, 1, speakers, {}},
        {"call mode plays into the cable", {true, false, "", "headset", ""}, 1, 5, {}},
        {"hear myself on headphones", {true, true, "", "headset", ""}, 1, 5, headset},
        {"never on speakers", {true, true, "", "speakers", ""}, 1, 5, {}},
    };
    for (const auto& c : cases) {
        const LiveRoute route = routeLive(machine(), c.request);
        EXPECT_EQ(route.mic.id, c.mic) << c.what;
        EXPECT_EQ(route.output.id, c.out) << c.what;
        EXPECT_EQ(route.monitor ? std::optional(route.monitor->id) : std::nullopt, c.monitor) << c.what;
        EXPECT_EQ(route.isCall, c.request.isCall) << c.what;
    }
}

TEST(LiveRouting, MissingDevicesAndTheSystemMicrophone) {
    DeviceTable noCable = machine();
    noCable.entries.pop_back();
    EXPECT_EQ(routeError(noCable, {true, false, "", "", ""}), kCallNeedsVirtualMicMessage);
    EXPECT_EQ(routeError(DeviceTable{}, {}), kNoDevicesMessage);

    // Left on the cable by a crashed run: the saved microphone is the real one.
    DeviceTable crashed = machine();
    crashed.defaultInput = 5;
    EXPECT_EQ(realSystemMic(crashed, "headset_mic"), std::optional<uint32_t>(2));
    EXPECT_EQ(realSystemMic(crashed, ""), std::optional<uint32_t>(1));
    EXPECT_EQ(micToRestore(crashed, "headset_mic"), std::optional<uint32_t>(2));
    EXPECT_EQ(micToRestore(crashed, "unplugged"), std::optional<uint32_t>(1));
    EXPECT_EQ(micToRestore(DeviceTable{}, ""), std::nullopt);
}

namespace {

struct StartOutcome {
    bool started = false;
    QString error;
};

StartOutcome startWith(testaudio::FakeBackend& backend) {
    BackendJobs jobs;
    LiveSession session(&backend, jobs);
    StartOutcome outcome;
    QObject::connect(&session, &LiveSession::started, [&] { outcome.started = true; });
    QObject::connect(&session, &LiveSession::startFailed, [&](ErrorCode, const QString& e) { outcome.error = e; });
    session.start([] {
        LiveSession::Request r;
        r.stage = EffectVoiceStage::factory(Voice::natural());
        return r;
    });
    EXPECT_TRUE(session.isStarting());
    testpulse::waitUntil([&] { return outcome.started || !outcome.error.isEmpty(); }, 5000);
    session.tearDown();
    jobs.waitIdle(std::chrono::seconds(5));
    return outcome;
}

}  // namespace

TEST(LiveSessionRetries, ThirdAttemptSucceedsQuietlyAndThreeFailuresGiveTheSentence) {
    testaudio::FakeBackend lateServer(machine, 2);
    const auto late = startWith(lateServer);
    EXPECT_TRUE(late.started);
    EXPECT_TRUE(late.error.isEmpty());
    EXPECT_EQ(lateServer.snapshots.load(), 3);

    testaudio::FakeBackend noServer(machine, 100);
    const auto none = startWith(noServer);
    EXPECT_FALSE(none.started);
    EXPECT_EQ(none.error.toStdString(), kNoServerMessage);
    EXPECT_EQ(noServer.snapshots.load(), 3);
}
