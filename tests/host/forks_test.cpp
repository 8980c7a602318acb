// Children that no fork handler is told of, made at moments that are bad for them.

#include "host/system/forks.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "host/arena/domain.h"
#include "host/recovery/domain_lock.h"
#include "platform/linx.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/shared.h"
#include "tests/kit/unannounced_fork.h"

namespace linx {
namespace {

using linxtest::Fork;
using linxtest::reasonAgainstUnannouncedForks;
using linxtest::statusOf;
using linxtest::unannouncedFork;
using Forks = linxtest::DomainTest;

constexpr unsigned patienceSeconds = 20;
constexpr int isWrong = 1;

#ifdef __SANITIZE_THREAD__
// It takes a mutex that is made anew for one that a thread still has, though that thread has stayed behind.
constexpr bool canMutexesBeMadeAnew = false;
#else
constexpr bool canMutexesBeMadeAnew = true;
#endif

/// A child in which `body` is to hold. It dies if that takes it too long.
template <class Body>
pid_t makeChild(Fork fork, Body body) {
    const pid_t child = fork();
    if (child != 0) return child;
    alarm(patienceSeconds);
    _exit(body() ? 0 : isWrong);
}

bool opens() {
    const std::string name = "own" + std::to_string(getpid());  // no two may have the same
    LINX* endpoint = linx_open(name.c_str(), 0, nullptr);
    return endpoint != nullptr && linx_close(endpoint) == 0;
}

/// Whether threads are to stop in the middle of their forks, and whether one has.
std::atomic<bool> stopsForks{false};
std::atomic<bool> forkHasStopped{false};

/// For a child, which is not to be stopped itself.
bool forksAndOpens() {
    stopsForks = false;
    return statusOf(makeChild(fork, opens)) == 0 && opens();
}

/// When every handler of the platform has been called.
void stopFork() {
    if (!stopsForks) return;
    forkHasStopped = true;
    while (stopsForks) std::this_thread::yield();
}

// Before the platform registers its own: what is registered first is called last.
[[gnu::constructor(101)]] void registerFirst() {
    pthread_atfork(stopFork, nullptr, nullptr);
}

/// In its scope a thread is inside a fork.
class ForkUnderWay {
public:
    ForkUnderWay() {
        stopsForks = true;
        forkHasStopped = false;
        thread_ = std::thread([] { EXPECT_EQ(statusOf(makeChild(fork, [] { return true; })), 0); });
        while (!forkHasStopped) std::this_thread::yield();
    }
    ~ForkUnderWay() {
        stopsForks = false;
        thread_.join();
    }

private:
    std::thread thread_;
};

/// Whether a child that no handler was told of can do this though a thread of its parent was inside a fork.
template <class Body>
void expectOfChildMadeAmidAFork(Body body) {
    if (!canMutexesBeMadeAnew) GTEST_SKIP() << "the sanitizer does not believe it";
    if (const char* reason = reasonAgainstUnannouncedForks()) GTEST_SKIP() << reason;
    LINX* endpoint = linx_open("forked", 0, nullptr);
    pid_t child;
    {
        const ForkUnderWay underWay;
        ASSERT_EQ(forks::stamp(), forks::forking);
        child = makeChild(unannouncedFork(), body);
    }
    EXPECT_EQ(statusOf(child), 0);
    EXPECT_EQ(linx_close(endpoint), 0);
}

TEST_F(Forks, AChildThatNoHandlerWasToldOfOpensEndpointsThoughAThreadOfItsParentWasInsideAFork) {
    expectOfChildMadeAmidAFork(opens);
}

TEST_F(Forks, AChildThatNoHandlerWasToldOfForksThoughAThreadOfItsParentWasInsideAFork) {
    expectOfChildMadeAmidAFork(forksAndOpens);
}

TEST_F(Forks, AChildThatNoHandlerWasToldOfGetsTheLockThatAThreadOfItsParentHad) {
    if (const char* reason = reasonAgainstUnannouncedForks()) GTEST_SKIP() << reason;
    LINX* endpoint = linx_open("forked", 0, nullptr);
    const std::shared_ptr<Domain> joined = Domain::join();
    pid_t opener;
    pid_t forker;
    {
        const DomainLock lock(*joined);
        opener = makeChild(unannouncedFork(), opens);
        forker = makeChild(unannouncedFork(), forksAndOpens);
    }
    EXPECT_EQ(statusOf(opener), 0);
    EXPECT_EQ(statusOf(forker), 0);
    EXPECT_EQ(linx_close(endpoint), 0);
}

/// How far parent and child have come, and whether the child has had the lock while its parent had it.
struct Contest {
    Count child;
    Count parent;
    std::atomic<bool> childHadIt;
};

TEST_F(Forks, AChildThatNoHandlerWasToldOfDoesNotShareTheLockOfItsParentOnceItHasForked) {
    if (const char* reason = reasonAgainstUnannouncedForks()) GTEST_SKIP() << reason;
    const std::shared_ptr<Domain> joined = Domain::join();
    const Shared<Contest> contest;
    const pid_t child = makeChild(unannouncedFork(), [&] {
        const bool forked = statusOf(makeChild(fork, [] { return true; })) == 0;
        contest->child = 1;
        if (!contest->parent.reaches(1)) return false;
        contest->childHadIt = DomainLock(*joined, DomainLock::Patience::tryOnce).isHeld();
        contest->child = 2;
        return forked;
    });
    EXPECT_TRUE(contest->child.reaches(1));
    {
        const DomainLock lock(*joined);
        contest->parent = 1;
        EXPECT_TRUE(contest->child.reaches(2));
    }
    EXPECT_FALSE(contest->childHadIt) << "both have had it";
    EXPECT_EQ(statusOf(child), 0);
}

}  // namespace
}  // namespace linx
