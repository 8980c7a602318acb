// After a fork an endpoint belongs to whichever of the two processes uses it first.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "host/system/clock.h"
#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"

namespace {

using Fork = ProcessTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;
constexpr uint32_t anySignal[] = {0};

/// Sends what it receives back to where it came from, until it receives a signal without a payload.
void mirror(LINX* endpoint) {
    for (;;) {
        const std::optional<Received> received = receive(endpoint, patience);
        ASSERT_TRUE(received);
        ASSERT_EQ(0, sendBytes(endpoint, received->sender, received->number, received->payload));
        if (received->payload.empty()) return;
    }
}

void talkTo(LINX* endpoint, LinxSpid mirror) {
    for (uint32_t i = 0; i < 20; ++i) {
        ASSERT_EQ(0, send(endpoint, mirror, item, {i}));
        const Received received = expectSignal(endpoint, item);
        EXPECT_EQ(mirror, received.sender);
        EXPECT_EQ(i, received.word());
    }
}

void finish(LINX* endpoint, LinxSpid mirror) {
    ASSERT_EQ(0, send(endpoint, mirror, item));
    expectSignal(endpoint, item);
}

/// Every operation on the endpoint refuses, and leaves its arguments alone. `signal` was the endpoint's before.
void expectRefusals(LINX* endpoint, LinxSignal* signal, LinxRef timeout) {
    const auto refuses = [](bool failed) { return failed && errno == ECHILD; };
    const LinxSignal* const before = signal;
    const LinxRef timeoutBefore = timeout;
    LinxSignal* received = nullptr;
    char* name = nullptr;
    EXPECT_TRUE(refuses(linx_alloc(endpoint, 4, item) == nullptr));
    EXPECT_TRUE(refuses(linx_send(endpoint, &signal, 1) == -1));
    EXPECT_TRUE(refuses(linx_free_buf(endpoint, &signal) == -1));
    EXPECT_TRUE(refuses(linx_sender(endpoint, &signal) == 0));
    EXPECT_TRUE(refuses(linx_hunt(endpoint, "any", &signal) == -1));
    EXPECT_TRUE(refuses(linx_hunt(endpoint, "any", nullptr) == -1));
    EXPECT_TRUE(refuses(linx_attach(endpoint, &signal, 1) == 0));
    EXPECT_TRUE(refuses(linx_receive(endpoint, &received, anySignal) == -1));
    EXPECT_TRUE(refuses(linx_receive_w_tmo(endpoint, &received, 0, anySignal) == -1));
    EXPECT_TRUE(refuses(linx_get_name(endpoint, 1, &name) == -1));
    EXPECT_TRUE(refuses(linx_free_name(endpoint, &name) == -1));
    EXPECT_TRUE(refuses(linx_request_tmo(endpoint, 1, &signal) == 0));
    EXPECT_TRUE(refuses(linx_cancel_tmo(endpoint, &timeout) == -1));
    EXPECT_TRUE(refuses(linx_get_descriptor(endpoint) == -1));
    EXPECT_EQ(before, signal);
    EXPECT_EQ(timeoutBefore, timeout);
}

void expectRefusedClose(LINX* endpoint) {
    EXPECT_EQ(-1, linx_close(endpoint));
    EXPECT_EQ(ECHILD, errno);
}

TEST_F(Fork, TheChildThatIsFirstKeepsTheEndpoint) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        LinxSignal* signal = linx_alloc(endpoint, 8, item);
        const LinxRef timeout = linx_request_tmo(endpoint, 1000000, nullptr);
        Child daemon([&](Line& parent) {
            parent.tell(spidOf(endpoint));
            mirror(endpoint);
            EXPECT_EQ(0, linx_close(endpoint));
        });
        const LinxSpid spid = daemon.hear();
        expectRefusals(endpoint, signal, timeout);
        test.tell(spid);
        test.hear();
        expectRefusedClose(endpoint);
        test.tell();
        EXPECT_EQ(0, daemon.exitStatus());
    });
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    EXPECT_EQ(spid, hunt(endpoint, "forked"));
    talkTo(endpoint, spid);
    parentProcess.tell();
    parentProcess.hear();  // the parent has closed its copy
    talkTo(endpoint, spid);
    EXPECT_EQ(spid, hunt(endpoint, "forked"));
    finish(endpoint, spid);
    EXPECT_EQ(0, parentProcess.exitStatus());
}

TEST_F(Fork, TheParentThatIsFirstKeepsTheEndpoint) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        LinxSignal* signal = linx_alloc(endpoint, 8, item);
        const LinxRef timeout = linx_request_tmo(endpoint, 1000000, nullptr);
        Child late([&](Line& parent) {
            parent.hear();
            expectRefusals(endpoint, signal, timeout);
            expectRefusedClose(endpoint);
        });
        test.tell(spidOf(endpoint));
        late.tell();
        EXPECT_EQ(0, late.exitStatus());
        mirror(endpoint);
        EXPECT_EQ(0, linx_close(endpoint));
    });
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    EXPECT_EQ(spid, hunt(endpoint, "forked"));
    talkTo(endpoint, spid);
    finish(endpoint, spid);
    EXPECT_EQ(0, parentProcess.exitStatus());
}

TEST_F(Fork, TheWinnerKeepsWhatWasQueuedAndKnown) {
    Child parentProcess([](Line& test) {
        LINX* forked = linx_open("forked", 0, nullptr);
        const LinxSpid known = hunt(forked, "test");
        EXPECT_NE(0u, attach(forked, known, notice));
        EXPECT_NE(0u, linx_request_tmo(forked, 1, nullptr));
        test.tell(spidOf(forked));
        test.hear();
        EXPECT_TRUE(receive(forked, patience, {item + 1}));  // brings the one before into the queue
        Child winner([&](Line& parent) {
            EXPECT_EQ(7u, expectAmongOthers(forked, item).word());
            expectSignal(forked, LINX_OS_TIMEOUT_SIG);
            EXPECT_EQ(0, send(forked, known, item));
            parent.tell();
            expectSignal(forked, notice);
            EXPECT_EQ(0, linx_close(forked));
        });
        winner.hear();
        expectRefusedClose(forked);
        EXPECT_EQ(0, winner.exitStatus());
    });
    Endpoint endpoint("test");
    const LinxSpid spid = parentProcess.hear();
    ASSERT_EQ(0, send(endpoint, spid, item, {7}));
    ASSERT_EQ(0, send(endpoint, spid, item + 1));
    parentProcess.tell();
    EXPECT_EQ(spid, expectSignal(endpoint, item).sender);
    endpoint.close();
    EXPECT_EQ(0, parentProcess.exitStatus());
}

TEST_F(Fork, TheWinnersDeathIsNoticedThoughTheLoserLives) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        Child winner([&](Line& parent) {
            parent.tell(spidOf(endpoint));
            parent.hear();
        });
        test.tell(winner.hear());
        EXPECT_EQ(nullptr, linx_alloc(endpoint, 4, item));
        EXPECT_EQ(ECHILD, errno);
        test.tell();
        test.hear();
        winner.kill9();
        test.tell();
        test.hear();
        expectRefusedClose(endpoint);
    });
    const LinxSpid spid = parentProcess.hear();
    parentProcess.hear();
    Endpoint endpoint("test");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    parentProcess.tell();
    parentProcess.hear();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
    Endpoint next("forked");
    parentProcess.tell();
    EXPECT_EQ(0, parentProcess.exitStatus());
}

/// Has a child take an endpoint over, tells the spid, and has it closed there; says so, and keeps its own copy
/// untouched.
void closeInChild(Line& test) {
    LINX* endpoint = linx_open("forked", 0, nullptr);
    Child winner([&](Line& parent) {
        parent.tell(spidOf(endpoint));
        parent.hear();
        EXPECT_EQ(0, linx_close(endpoint));
    });
    test.tell(winner.hear());
    test.hear();
    winner.tell();
    EXPECT_EQ(0, winner.exitStatus());
    test.tell();
    test.hear();
}

TEST_F(Fork, AnOrderlyCloseInTheChildIsToldAtOnceThoughTheParentKeepsItsCopy) {
    Child parentProcess(closeInChild);
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    parentProcess.tell();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
    parentProcess.hear();
    parentProcess.tell();
    EXPECT_EQ(0, parentProcess.exitStatus());
}

TEST_F(Fork, AnOrderlyCloseInTheChildIsToldToOneWhoseQueueNeverRunsDry) {
    Child parentProcess(closeInChild);
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    const LinxSpid own = spidOf(endpoint);
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    for (int i = 0; i < 4; ++i) ASSERT_EQ(0, send(endpoint, own, item));
    parentProcess.tell();
    parentProcess.hear();
    const uint64_t deadline = linx::coarseMilliseconds() + patience;
    std::optional<Received> received;
    do {
        received = receive(endpoint, 0);
        ASSERT_TRUE(received);
        if (received->number == notice) break;
        ASSERT_EQ(0, send(endpoint, own, item));
    } while (linx::coarseMilliseconds() < deadline);
    EXPECT_EQ(notice, received->number);
    EXPECT_EQ(spid, received->sender);
    parentProcess.tell();
    EXPECT_EQ(0, parentProcess.exitStatus());
}

TEST_F(Fork, WhoTookItOverClosesItForAllAndLivesOn) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        Child winner([&](Line& parent) {
            spidOf(endpoint);
            EXPECT_EQ(0, linx_close(endpoint));
            const Endpoint next("forked");
            parent.tell(spidOf(next));
            parent.hear();
        });
        test.tell(winner.hear());
        expectRefusedClose(endpoint);
        test.hear();
        winner.tell();
        EXPECT_EQ(0, winner.exitStatus());
    });
    const LinxSpid next = parentProcess.hear();
    Endpoint endpoint("test");
    EXPECT_EQ(next, hunt(endpoint, "forked"));
    parentProcess.tell();
    EXPECT_EQ(0, parentProcess.exitStatus());
}

TEST_F(Fork, ALoserThatDoesNothingButCloseIsToldSo) {
    Endpoint endpoint("forked");
    Child late([&](Line& parent) {
        parent.hear();
        expectRefusedClose(endpoint);
    });
    const LinxSpid spid = spidOf(endpoint);
    late.tell();
    EXPECT_EQ(0, late.exitStatus());
    EXPECT_EQ(spid, hunt(endpoint, "forked"));
}

TEST_F(Fork, ACopyOfAPeersDoorbellDoesNotKeepTheDescriptorReadable) {
    Child peer([](Line& parent) {
        const Endpoint endpoint("peer");
        parent.tell(spidOf(endpoint));
        parent.hear();
    });
    const LinxSpid known = peer.hear();
    Endpoint endpoint("forked");
    ASSERT_NE(0u, attach(endpoint, known, notice));
    Child copy([](Line& parent) { parent.hear(); });
    spidOf(endpoint);  // it stays the parent's
    peer.kill9();
    EXPECT_TRUE(endpoint.awaitReadable());
    EXPECT_EQ(known, expectSignal(endpoint, notice, 0).sender);
    expectNothing(endpoint);
    EXPECT_FALSE(endpoint.readable());
    copy.tell();
    EXPECT_EQ(0, copy.exitStatus());
}

TEST_F(Fork, AnEndpointMayBeHandedOnThroughSeveralForks) {
    Child first([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        Child second([&](Line& parent) {
            const LinxSpid spid = spidOf(endpoint);
            Child third([&](Line& secondProcess) {
                EXPECT_EQ(spid, spidOf(endpoint));
                secondProcess.tell(spid);
                mirror(endpoint);
                EXPECT_EQ(0, linx_close(endpoint));
            });
            const LinxSpid known = third.hear();
            expectRefusedClose(endpoint);
            parent.tell(known);
            EXPECT_EQ(0, third.exitStatus());
        });
        const LinxSpid spid = second.hear();
        expectRefusedClose(endpoint);
        test.tell(spid);
        EXPECT_EQ(0, second.exitStatus());
    });
    const LinxSpid spid = first.hear();
    Endpoint endpoint("test");
    talkTo(endpoint, spid);
    finish(endpoint, spid);
    EXPECT_EQ(0, first.exitStatus());
}

TEST_F(Fork, AChildMayOpenEndpointsOfItsOwn) {
    Endpoint inherited("inherited");
    Child child([&](Line& parent) {
        Endpoint own("own");
        parent.tell(spidOf(own));
        mirror(own);
    });
    const LinxSpid spid = child.hear();
    talkTo(inherited, spid);
    finish(inherited, spid);
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Fork, AnExecInTheChildLeavesTheEndpointToTheParent) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        int pipe[2];
        ASSERT_EQ(0, ::pipe(pipe));
        const pid_t other = fork();
        if (other == 0) {
            dieWithParent();
            dup2(pipe[0], STDIN_FILENO);
            close(pipe[1]);
            execlp("cat", "cat", nullptr);
            _exit(127);
        }
        close(pipe[0]);
        test.tell(spidOf(endpoint));
        mirror(endpoint);
        test.tell(static_cast<uint32_t>(other));
        test.hear();
    });
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    talkTo(endpoint, spid);
    finish(endpoint, spid);
    EXPECT_NE(0u, parentProcess.hear());
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    expectNothing(endpoint);
    parentProcess.kill9();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
}

}  // namespace
