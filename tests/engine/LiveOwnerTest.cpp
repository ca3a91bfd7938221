// The session's live owner: a holder every process can see, gone with its
// process even when that process is killed, and in one process one claim
// that live shares and a repair never takes from under it.
#include "engine/LiveOwner.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace parlova;

TEST(SessionLock, HolderIsSeenElsewhereAndGoesWithItsProcessEvenWhenKilled) {
    QTemporaryDir dir;
    const QString path = dir.filePath("owner.lock");
    EXPECT_FALSE(SessionLock::holderOf(path).has_value());

    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Another process of the session takes the lock and lives on until killed.
        SessionLock lock(path);
        const bool taken = lock.tryAcquire({::getpid(), "the other one", "live", "/somewhere/control"});
        const char answer = taken ? 'y' : 'n';
        (void)!::write(ready[1], &answer, 1);
        for (;;) ::pause();
    }
    char answer = 0;
    ASSERT_EQ(::read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');

    const auto holder = SessionLock::holderOf(path);
    ASSERT_TRUE(holder.has_value());
    EXPECT_EQ(holder->pid, child);
    EXPECT_EQ(holder->who, "the other one");
    EXPECT_EQ(holder->controlPath, "/somewhere/control");
    SessionLock mine(path);
    EXPECT_FALSE(mine.tryAcquire({::getpid(), "me", "live", {}}));

    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(SessionLock::holderOf(path).has_value());
    EXPECT_TRUE(mine.tryAcquire({::getpid(), "me", "live", {}}));
    EXPECT_EQ(SessionLock::holderOf(path)->who, "me");
    mine.release();
    EXPECT_FALSE(SessionLock::holderOf(path).has_value());
    ::close(ready[0]);
    ::close(ready[1]);
}

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
