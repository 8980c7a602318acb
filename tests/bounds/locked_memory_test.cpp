// Processes whose memory may not leave the machine's: all that they map is locked, and brought in at once.

#include <grp.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;
constexpr uid_t user = 65534;

using LockedMemory = ProcessTest;

/// Has all that this process maps from now on locked. False where that is not allowed, or, as under sanitizers, does
/// nothing.
bool lockFuture() {
    if (mlockall(MCL_FUTURE) != 0) return false;
    const auto bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* untouched = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    unsigned char isIn = 0;
    const bool locked = untouched == MAP_FAILED || (mincore(untouched, bytes, &isIn) == 0 && (isIn & 1) != 0);
    if (untouched != MAP_FAILED) munmap(untouched, bytes);
    return locked;
}

/// Makes this process one that may lock no more than some. False where that cannot be.
bool limitLocking() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0) return false;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 16u << 20);
    if (setrlimit(RLIMIT_MEMLOCK, &limit) != 0) return false;
    if (geteuid() != 0) return true;
    const bool changed =
        setgroups(0, nullptr) == 0 && setresgid(user, user, user) == 0 && setresuid(user, user, user) == 0;
    dieWithParent();
    return changed;
}

TEST_F(LockedMemory, HoldsOfTheArenaNoMoreThanIsUsed) {
    Child child([this](Line& parent) {
        const bool locked = lockFuture();
        LINX* linx = locked ? linx_open("endpoint", 0, nullptr) : nullptr;
        // A user may lock less than that: then there is no domain for him.
        const bool isTold = linx == nullptr && errno == ENOMEM;
        parent.tell(locked && !isTold);
        if (!locked || isTold) return;
        ASSERT_NE(linx, nullptr);
        EXPECT_LT(domain.arenaBytes(), 8u << 20);
        ASSERT_EQ(sendBytes(linx, spidOf(linx), item, pattern(1000000, 1)), 0);
        EXPECT_TRUE(pattern(1000000, 1) == expectSignal(linx, item, 0).payload);
        EXPECT_LT(domain.arenaBytes(), 8u << 20);
        EXPECT_EQ(linx_close(linx), 0);
    });
    const bool couldLock = child.hear() != 0;
    EXPECT_EQ(child.exitStatus(), 0);
    if (!couldLock) GTEST_SKIP() << "not so much may be locked here";
}

TEST_F(LockedMemory, BeyondTheLimitIsAnErrorOfTheOpen) {
    if (geteuid() == 0) {
        ASSERT_EQ(chown(domain.path().c_str(), user, user), 0);
    }
    Child child([](Line& parent) {
        const bool locked = limitLocking() && lockFuture();
        parent.tell(locked);
        if (!locked) return;
        EXPECT_EQ(linx_open("endpoint", 0, nullptr), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        munlockall();
        const Endpoint endpoint("endpoint");
    });
    const bool couldLock = child.hear() != 0;
    EXPECT_EQ(child.exitStatus(), 0);
    if (!couldLock) GTEST_SKIP() << "no limit can be set here, or nothing be locked";
}

}  // namespace
