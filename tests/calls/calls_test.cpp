// Faults of the kernel that were once not withstood.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "tests/calls/attempt.h"
#include "tests/calls/tracer.h"

namespace {

using calls::Deed;

class CallsTest : public testing::Test {
protected:
    void SetUp() override {
        if (!calls::Tracer::isPossible()) GTEST_SKIP() << "system calls of other processes cannot be watched here";
    }

    /// The `nth` call of that name in the operation answers `error`, and so do, if the deed is failOn, all that
    /// follow and may.
    static void expectWithstands(const std::string& name, const std::string& call, uint32_t nth, int error,
                                 Deed deed = Deed::fail) {
        const std::vector<scene::Operation>& all = calls::operations();
        const auto operation =
            std::find_if(all.begin(), all.end(), [&](const auto& one) { return name == one.name; });
        ASSERT_NE(operation, all.end());
        const calls::Outcome outcome = calls::attempt(*operation, {deed, {calls::lineNamed(call), nth}, error});
        EXPECT_TRUE(outcome.reached) << call << " " << nth << " of " << name;
        EXPECT_EQ(outcome.complaints, std::vector<std::string>());
    }
};

TEST_F(CallsTest, AnInterruptedOpenIsDoneAgain) {
    expectWithstands("open", "openat", 1, EINTR);
    expectWithstands("open", "openat", 2, EINTR, Deed::failOn);
    expectWithstands("open a new domain", "openat O_TMPFILE", 1, EINTR);
    expectWithstands("attach, few descriptors", "openat", 2, EINTR);
}

TEST_F(CallsTest, AReasonThatIsKnownIsNotTakenForADamagedArena) {
    expectWithstands("open", "pread64", 1, EIO);
    expectWithstands("open", "pread64", 1, EINTR);
    expectWithstands("open", "fstat", 4, ENOMEM);
}

TEST_F(CallsTest, MoreLockedMemoryThanIsAllowedIsALackOfMemory) {
    expectWithstands("open", "mmap", 2, EAGAIN);
}

TEST_F(CallsTest, ADoorbellIsMadeThoughItsReadIsDisturbed) {
    expectWithstands("open", "read", 1, EAGAIN);
    expectWithstands("open", "read", 1, EINTR);
}

TEST_F(CallsTest, ALockThatCannotBeLetGoOfIsLetGoOfAllTheSame) {
    expectWithstands("hunt, pending", "flock LOCK_UN", 1, ENOLCK);
    expectWithstands("close", "flock LOCK_UN", 1, ENOLCK, Deed::failOn);
}

TEST_F(CallsTest, APeerMakesRoomWhereNoMoreMayBeWatched) {
    expectWithstands("attach, few descriptors", "epoll_ctl EPOLL_CTL_ADD", 1, ENOSPC);
    expectWithstands("time-out", "epoll_ctl EPOLL_CTL_ADD", 1, ENOSPC);
}

TEST_F(CallsTest, AnEndOfWhichACopyKeepsTheKernelSilentIsToldAtTheSecondAttempt) {
    expectWithstands("close, a copy lives on", "flock", 1, ENOLCK);
    expectWithstands("close, a copy lives on", "openat", 2, EMFILE);
}

}  // namespace
