// The system microphone during a call, against a sound server in memory:
// another program moving it away is published, taken back only on request,
// and a microphone the user chose is not replaced when the call ends.
// (Repairs beside a live call are tried with real processes in CallOwnerPulseTest.)
#include "engine/CallMode.h"
#include "engine/LiveOwner.h"
#include "support/FakeBackend.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>


using namespace parlova;
using namespace parlova::testaudio;

namespace {

constexpr uint32_t kLaptopMic = 1, kHeadsetMic = 2, kCable = 5;

// A server whose default input moves when asked, and whenever the test says.
class MovableServer : public FakeBackend {
public:
    MovableServer() : FakeBackend([] { return fakeMachine(); }) {}
    void userPicks(uint32_t id) {
        setDefaultInput(*fakeMachine().find(id));
        emit events().defaultsChanged();
    }
    uint32_t systemMic() { return defaultInput().value_or(kLaptopMic); }
};

// Lets the job thread and the queued completions run.
void settle(BackendJobs& jobs) {
    for (int i = 0; i < 5; ++i) {
        jobs.waitIdle(std::chrono::milliseconds(2000));
        QCoreApplication::processEvents();
    }
}

}  // namespace

TEST(CallMode, AMovedMicrophoneIsPublishedTakenBackOnRequestAndLeftAsChosenAtTheEnd) {
    QTemporaryDir dir;
    qputenv("XDG_RUNTIME_DIR", dir.path().toUtf8());
    QSettings settings(dir.filePath("settings.ini"), QSettings::IniFormat);
    MovableServer server;
    BackendJobs jobs;
    CallMode call(settings, &server, jobs);
    const auto claim = LiveOwner::claimLive();  // this process runs the call

    call.useVirtualCableAsSystemMic(fakeMachine());
    settle(jobs);
    EXPECT_EQ(server.systemMic(), kCable);
    EXPECT_EQ(call.savedMic(), "laptop_mic");
    EXPECT_TRUE(call.systemMicElsewhere().isEmpty());

    server.userPicks(kHeadsetMic);
    settle(jobs);
    EXPECT_EQ(call.systemMicElsewhere(), "Headset Mic");
    EXPECT_EQ(server.systemMic(), kHeadsetMic);  // nothing switched unasked

    call.takeBackSystemMic();
    settle(jobs);
    EXPECT_EQ(server.systemMic(), kCable);
    EXPECT_TRUE(call.systemMicElsewhere().isEmpty());
    EXPECT_EQ(call.savedMic(), "headset_mic");  // the user's latest choice is the one to give back

    server.userPicks(kLaptopMic);
    settle(jobs);
    call.restoreSystemMic();
    settle(jobs);
    EXPECT_EQ(server.systemMic(), kLaptopMic);
    EXPECT_FALSE(settings.contains(CallMode::kMicBeforeCallModeKey));
    qunsetenv("XDG_RUNTIME_DIR");
}
