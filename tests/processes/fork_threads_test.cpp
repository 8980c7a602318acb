// Forks while other threads of the process are at work on its endpoints, and children that no fork handler is told
// of.

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/shared.h"
#include "tests/kit/signals.h"
#include "tests/kit/unannounced_fork.h"

namespace {

using ForkThreads = ProcessTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

bool isRefused(LINX* endpoint, int reason = ECHILD) {
    return linx_alloc(endpoint, 4, item) == nullptr && errno == reason;
}

/// What a thread that works on an endpoint, and a child that was forked meanwhile, have seen.
struct Contest {
    std::atomic<uint32_t> begun;  ///< of the thread's operations
    std::atomic<uint32_t> done;   ///< of those that were not refused
    std::atomic<bool> childHasIt;
    uint32_t doneAtFork;
};

/// Allocates and frees until that is refused.
void workUntilRefused(LINX* endpoint, Contest& contest, const std::atomic<bool>& enough) {
    for (uint32_t round = 1; !enough; ++round) {
        contest.begun = round;
        LinxSignal* signal = linx_alloc(endpoint, 4, item);
        if (signal == nullptr) return;
        contest.done = round;
        if (linx_free_buf(endpoint, &signal) != 0) return;
    }
}

/// Forks while a thread works on the endpoint. Whichever of the two gets it, it has to be one.
void contend(LINX* endpoint, uint32_t headStart) {
    const Shared<Contest> result;
    Contest contest{};  // a child finds it as it was at the fork
    std::atomic<bool> enough{false};
    std::thread worker(workUntilRefused, endpoint, std::ref(contest), std::cref(enough));
    while (contest.done < headStart) sched_yield();
    Child child([&](Line&) {
        result->doneAtFork = contest.done;
        result->childHasIt = linx_alloc(endpoint, 4, item) != nullptr;
    });
    EXPECT_EQ(child.exitStatus(), 0);
    // The thread has to show now whether it still has the endpoint.
    const uint32_t begun = contest.begun;
    while (!result->childHasIt && contest.begun < begun + 2) sched_yield();
    enough = true;
    worker.join();
    // The operation that was under way at the fork may have been counted after it.
    EXPECT_TRUE(!result->childHasIt || contest.done <= result->doneAtFork + 1) << "both have had it";
}

TEST_F(ForkThreads, AnEndpointThatIsInUseNeverGetsTwoOwners) {
    Child parent([](Line&) {
        for (uint32_t round = 0; round < 100 && !testing::Test::HasFailure(); ++round) {
            LINX* endpoint = linx_open(("forked" + std::to_string(round)).c_str(), 0, nullptr);
            contend(endpoint, round % 16);
            linx_close(endpoint);  // refused where it is the child's
        }
    });
    EXPECT_EQ(parent.exitStatus(), 0);
}

/// A receive that another thread is in, for as long as this lives.
class Receiving {
public:
    explicit Receiving(Endpoint& endpoint) : endpoint_(endpoint), thread_([this] { receive(); }) {
        while (!isRefused(endpoint_, EINVAL)) sched_yield();
    }
    ~Receiving() {
        Endpoint waker("waker");
        EXPECT_EQ(send(waker, spid_, item), 0);
        thread_.join();
    }

private:
    void receive() {
        LinxSignal* signal = nullptr;
        int size;
        do {  // it may be refused itself, while the other thread tries whether that is
            size = linx_receive(endpoint_, &signal, anySignal);
        } while (size == -1 && errno == EINVAL);
        EXPECT_LT(0, size);
        EXPECT_EQ(linx_free_buf(endpoint_, &signal), 0);
    }

    Endpoint& endpoint_;
    const LinxSpid spid_ = spidOf(endpoint_);
    std::thread thread_;
};

TEST_F(ForkThreads, AChildThatWasMadeWhileAThreadWasInsideIsRefused) {
    Child parent([](Line&) {
        Endpoint endpoint("forked");
        const Receiving receiving(endpoint);
        Child child([&](Line&) {
            EXPECT_TRUE(isRefused(endpoint));
            EXPECT_TRUE(isRefused(endpoint));
            LinxSignal* signal = nullptr;
            EXPECT_EQ(linx_sender(endpoint, &signal), 0u);
            EXPECT_EQ(errno, ECHILD);
        });
        EXPECT_EQ(child.exitStatus(), 0);
    });
    EXPECT_EQ(parent.exitStatus(), 0);
}

TEST_F(ForkThreads, OnceRefusedItDoesNotHideTheEndOfItsParent) {
    Child parent([](Line& test) {
        Endpoint endpoint("forked");
        const Receiving receiving(endpoint);
        Child survivor([&](Line& line) {
            prctl(PR_SET_PDEATHSIG, 0);
            alarm(3 * patience / 1000);  // should the test fail
            EXPECT_TRUE(isRefused(endpoint));
            line.tell();
            pause();
        });
        survivor.hear();
        test.tell(static_cast<uint32_t>(survivor.pid()));
        test.hear();
    });
    const auto survivor = static_cast<pid_t>(parent.hear());
    ASSERT_GT(survivor, 0);
    Endpoint supervisor("supervisor");
    const LinxSpid spid = hunt(supervisor, "forked");
    ASSERT_NE(attach(supervisor, spid, notice), 0u);
    parent.kill9();
    EXPECT_EQ(expectSignal(supervisor, notice).sender, spid);
    EXPECT_EQ(kill(survivor, SIGKILL), 0);
}

/// Whether `body` holds in such a child.
template <class Body>
void inUnannouncedChild(Body body) {
    if (const char* reason = linxtest::reasonAgainstUnannouncedForks()) GTEST_SKIP() << reason;
    const pid_t child = linxtest::unannouncedFork()();
    if (child == 0) _exit(body() ? 0 : 1);
    EXPECT_EQ(linxtest::statusOf(child), 0);
}

TEST_F(ForkThreads, AChildThatNoHandlerWasToldOfIsRefused) {
    Endpoint endpoint("forked");
    LinxSignal* signal = linx_alloc(endpoint, 4, item);
    inUnannouncedChild([&] { return isRefused(endpoint) && linx_sender(endpoint, &signal) == 0 && errno == ECHILD; });
    EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
}

TEST_F(ForkThreads, SoIsOneThatWasMadeWhileAThreadWasInside) {
    Endpoint endpoint("forked");
    const Receiving receiving(endpoint);
    inUnannouncedChild([&] {
        LinxSignal* signal = nullptr;
        return isRefused(endpoint) && linx_sender(endpoint, &signal) == 0 && errno == ECHILD;
    });
}

TEST_F(ForkThreads, SoAreItAndItsOwnChildOnceItHasForked) {
    Endpoint endpoint("forked");
    LinxSignal* signal = linx_alloc(endpoint, 4, item);
    inUnannouncedChild([&] {
        const pid_t grandchild = fork();
        const bool refused = isRefused(endpoint) && linx_sender(endpoint, &signal) == 0 && errno == ECHILD;
        if (grandchild == 0) _exit(refused ? 0 : 1);
        return refused && linxtest::statusOf(grandchild) == 0;
    });
    EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
}

TEST_F(ForkThreads, WhatItHasOpenedItSharesWithItsOwnChildAsAnyProcessDoes) {
    Endpoint endpoint("forked");
    inUnannouncedChild([] {
        LINX* own = linx_open("own", 0, nullptr);
        const pid_t grandchild = fork();
        if (grandchild == 0) _exit(linx_alloc(own, 4, item) != nullptr ? 0 : 1);
        return linxtest::statusOf(grandchild) == 0 && isRefused(own);
    });
}

TEST_F(ForkThreads, AChildThatNoHandlerWasToldOfMayOpenEndpointsOfItsOwn) {
    Endpoint endpoint("forked");
    inUnannouncedChild([] {
        LINX* own = linx_open("own", 0, nullptr);
        LinxSignal* signal = linx_alloc(own, 4, item);
        return linx_free_buf(own, &signal) == 0 && linx_close(own) == 0;
    });
    LinxSignal* signal = linx_alloc(endpoint, 4, item);
    EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
}

}  // namespace
