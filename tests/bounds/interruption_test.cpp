// POSIX signals that come all the time, with a handler that has no call restarted: whatever waits goes on waiting.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/time.h>

#include <chrono>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/shared.h"
#include "tests/kit/signals.h"

namespace {

using Interrupted = ProcessTest;
using Clock = std::chrono::steady_clock;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

Count* interruptions = nullptr;
void countOne(int) {
    ++*interruptions;
}

/// Interrupts this process every 200 microseconds, and counts how often.
void beInterrupted(Count& count) {
    interruptions = &count;
    struct sigaction action = {};
    action.sa_handler = countOne;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 200}, {0, 200}};
    EXPECT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
}

TEST_F(Interrupted, AReceiveKeepsItsDeadlineAndGivesNothingSpurious) {
    const Shared<Counters> shared;
    Child child([&](Line&) {
        Endpoint endpoint("endpoint");
        beInterrupted(shared->steps);
        do {
            for (const uint32_t milliseconds : {0u, 1u, 30u, 100u}) {
                const Clock::time_point start = Clock::now();
                EXPECT_FALSE(receive(endpoint, milliseconds));
                EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(milliseconds));
            }
        } while (shared->steps <= 10);  // a machine that is busy elsewhere interrupts less often
        LinxSignal* signal = nullptr;
        const Clock::time_point start = Clock::now();
        EXPECT_NE(linx_request_tmo(endpoint, 50, nullptr), 0u);
        EXPECT_EQ(linx_receive(endpoint, &signal, anySignal), 4);
        EXPECT_EQ(signal->number, static_cast<uint32_t>(LINX_OS_TIMEOUT_SIG));
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
        EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
    });
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Interrupted, OpeningWaitsForItsTurn) {
    const Endpoint first("first");
    const int arena = open(domain.pathOf("arena").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(arena, LOCK_EX), 0);  // as who opens, closes or clears up
    Child child([&](Line& parent) {
        close(arena);
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        parent.tell();
        const Endpoint endpoint("endpoint");
        parent.tell(spidOf(endpoint));
    });
    child.hear();
    for (int i = 0; i < 50; ++i) {
        child.awaitSleep();
        kill(child.pid(), SIGUSR1);
    }
    close(arena);
    EXPECT_NE(child.hear(), 0u);
    EXPECT_EQ(child.exitStatus(), 0);
}

/// Everything that an endpoint can do, with whom it meets.
void doEverything(uint32_t round) {
    Endpoint endpoint("endpoint" + std::to_string(round));
    const LinxSpid mirror = hunt(endpoint, "mirror");
    for (const size_t size : {1u, 1000u, 500000u}) {
        const Bytes bytes = pattern(size, round);
        ASSERT_EQ(sendBytes(endpoint, mirror, item, bytes), 0);
        ASSERT_TRUE(bytes == expectSignal(endpoint, item).payload);
    }
    Endpoint brief("brief");
    ASSERT_NE(attach(endpoint, spidOf(brief), notice), 0u);
    ASSERT_EQ(linx_hunt(endpoint, "absent", nullptr), 0);
    brief.close();
    expectSignal(endpoint, notice);
    expectNothing(endpoint);
}

TEST_F(Interrupted, EveryOperationWorks) {
    const Shared<Counters> shared;
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "4096");  // takes long to make
    Child mirror([&](Line& parent) {
        beInterrupted(shared->progress);
        Endpoint endpoint("mirror");
        parent.tell();
        sendBack(endpoint, item);
    });
    mirror.hear();
    Child child([&](Line&) {
        beInterrupted(shared->steps);
        for (uint32_t round = 0; round < 30; ++round) doEverything(round);
        EXPECT_TRUE(shared->steps.reaches(100));
    });
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_TRUE(shared->progress.reaches(1));
}

}  // namespace
