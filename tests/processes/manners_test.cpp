// What the platform does not do to the process that it lives in: raise signals, burn time, wake up for nothing.

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using Manners = ProcessTest;

constexpr uint32_t item = 100;

void idleEndpoint(Line& parent) {
    Endpoint endpoint("victim");
    parent.tell();
    parent.hear();
}

volatile sig_atomic_t brokenPipes = 0;

/// Meets an endpoint, has it killed and sends to it. `prepare` sets how the process takes SIGPIPE, `check` looks at
/// what has become of it.
template <class Prepare, class Check>
void sendToTheKilled(Prepare prepare, Check check) {
    Child victim(idleEndpoint);
    victim.hear();
    Child sender([&](Line& parent) {
        prepare();
        Endpoint endpoint("sender");
        const LinxSpid to = hunt(endpoint, "victim");
        parent.tell();
        parent.hear();
        EXPECT_EQ(send(endpoint, to, item), ECONNRESET);
        check();
    });
    sender.hear();
    victim.kill9();
    sender.tell();
    EXPECT_EQ(sender.exitStatus(), 0);
}

bool isPending(int number) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, number) == 1;
}

void blockBrokenPipes() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

TEST_F(Manners, SendingToTheKilledDoesNotKillTheSender) {
    sendToTheKilled([] { signal(SIGPIPE, SIG_DFL); }, [] {});
}

TEST_F(Manners, SendingToTheKilledCallsNoHandler) {
    sendToTheKilled([] { signal(SIGPIPE, [](int) { brokenPipes = brokenPipes + 1; }); },
                    [] { EXPECT_EQ(brokenPipes, 0); });
}

TEST_F(Manners, SendingToTheKilledLeavesNoSignalPending) {
    sendToTheKilled(blockBrokenPipes, [] { EXPECT_FALSE(isPending(SIGPIPE)); });
}

TEST_F(Manners, SendingToTheKilledLeavesAPendingSignalPending) {
    sendToTheKilled(
        [] {
            blockBrokenPipes();
            raise(SIGPIPE);
        },
        [] { EXPECT_TRUE(isPending(SIGPIPE)); });
}

TEST_F(Manners, AnInterruptedReceiveGoesOn) {
    Child receiver([](Line& parent) {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        Endpoint endpoint("receiver");
        parent.tell(spidOf(endpoint));
        LinxSignal* signal = nullptr;
        EXPECT_EQ(linx_receive(endpoint, &signal, anySignal), 4);
        EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
    });
    const LinxSpid to = receiver.hear();
    Endpoint endpoint("sender");
    for (int i = 0; i < 100; ++i) kill(receiver.pid(), SIGUSR1);
    EXPECT_EQ(send(endpoint, to, item), 0);
    EXPECT_EQ(receiver.exitStatus(), 0);
}

int64_t usedMicroseconds(const rusage& usage) {
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * int64_t{1000000} + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
}

TEST_F(Manners, AQuietSecondInAReceiveCostsNothing) {
    Child quiet([](Line&) {
        Endpoint endpoint("quiet");
        expectNothing(endpoint);
        rusage before;
        rusage after;
        getrusage(RUSAGE_THREAD, &before);
        EXPECT_FALSE(receive(endpoint, 1000));
        getrusage(RUSAGE_THREAD, &after);
        EXPECT_LT(usedMicroseconds(after) - usedMicroseconds(before), 20000);
        EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, 3);
    });
    EXPECT_EQ(quiet.exitStatus(), 0);
}

/// What the kernel knows of a process: whether it sleeps, and how often it went to sleep.
struct Sleep {
    bool asleep = false;
    std::string times;

    explicit Sleep(pid_t process) {
        std::ifstream status("/proc/" + std::to_string(process) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("State:", 0) == 0) asleep = line.find('S', 6) != std::string::npos;
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) times = line;
        }
    }
};

TEST_F(Manners, AnIdleEndpointDoesNotWakeUp) {
    Child idle([](Line& parent) {
        Endpoint endpoint("idle");
        parent.tell();
        expectSignal(endpoint, item, 1000000);
    });
    idle.hear();
    Endpoint endpoint("watcher");
    const LinxSpid to = hunt(endpoint, "idle");
    std::string before;
    // Once it has slept through a tenth of a second it has nothing left to do.
    for (int tries = 0; tries < 100; ++tries) {
        before = Sleep(idle.pid()).times;
        EXPECT_FALSE(receive(endpoint, 100));
        const Sleep now(idle.pid());
        if (now.asleep && now.times == before) break;
    }
    ASSERT_NE(before, "");
    EXPECT_FALSE(receive(endpoint, 1000));
    EXPECT_EQ(Sleep(idle.pid()).times, before);
    EXPECT_TRUE(Sleep(idle.pid()).asleep);
    ASSERT_EQ(send(endpoint, to, item), 0);
    EXPECT_EQ(idle.exitStatus(), 0);
}

}  // namespace
