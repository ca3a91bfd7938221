// The session's live owner within one process: one claim that live shares,
// and a repair that never takes it from under a call. (Other processes and a
// killed owner are tried with real processes in CallOwnerPulseTest.)
#include "engine/LiveOwner.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

TEST(LiveOwner, LiveSharesItsClaimAndARepairWaitsForTheLastOne) {
    QTemporaryDir dir;
    qputenv("XDG_RUNTIME_DIR", dir.path().toUtf8());
    LiveOwner::setIdentity("this test");
    EXPECT_FALSE(LiveOwner::current().has_value());

    auto first = LiveOwner::claimLive();
    auto second = LiveOwner::claimLive();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first, second);
    EXPECT_EQ(LiveOwner::current()->who, "this test");
    EXPECT_FALSE(LiveOwner::claimForRepair());  // never beside a live call, this process's own included

    first.reset();
    EXPECT_TRUE(LiveOwner::current().has_value());  // the second still holds it
    second.reset();
    EXPECT_FALSE(LiveOwner::current().has_value());

    auto repair = LiveOwner::claimForRepair();
    ASSERT_TRUE(repair);
    std::optional<LockHolder> holder;
    EXPECT_FALSE(LiveOwner::claimLive(&holder));
    EXPECT_TRUE(LiveOwner::isPassing(holder));  // worth a retry in a moment
    repair.reset();
    EXPECT_TRUE(LiveOwner::claimLive());
    qunsetenv("XDG_RUNTIME_DIR");
}
