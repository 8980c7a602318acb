// After a fork an endpoint belongs to whichever of the two processes uses it first.

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/system/clock.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using Fork = ProcessTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

/// Sends what it receives back to where it came from, until it receives a signal without a payload.
void mirror(LINX* endpoint) {
    for (;;) {
        const std::optional<Received> received = receive(endpoint, patience);
        ASSERT_TRUE(received);
        ASSERT_EQ(sendBytes(endpoint, received->sender, received->number, received->payload), 0);
        if (received->payload.empty()) return;
    }
}

void talkTo(LINX* endpoint, LinxSpid mirror) {
    for (uint32_t i = 0; i < 20; ++i) {
        ASSERT_EQ(send(endpoint, mirror, item, {i}), 0);
        const Received received = expectSignal(endpoint, item);
        EXPECT_EQ(received.sender, mirror);
        EXPECT_EQ(received.word(), i);
    }
}

void finish(LINX* endpoint, LinxSpid mirror) {
    ASSERT_EQ(send(endpoint, mirror, item), 0);
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
    EXPECT_EQ(signal, before);
    EXPECT_EQ(timeout, timeoutBefore);
}

void expectRefusedClose(LINX* endpoint) {
    EXPECT_EQ(linx_close(endpoint), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(Fork, TheChildThatIsFirstKeepsTheEndpoint) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        LinxSignal* signal = linx_alloc(endpoint, 8, item);
        const LinxRef timeout = linx_request_tmo(endpoint, 1000000, nullptr);
        Child daemon([&](Line& parent) {
            parent.tell(spidOf(endpoint));
            mirror(endpoint);
            EXPECT_EQ(linx_close(endpoint), 0);
        });
        const LinxSpid spid = daemon.hear();
        expectRefusals(endpoint, signal, timeout);
        test.tell(spid);
        test.hear();
        expectRefusedClose(endpoint);
        test.tell();
        EXPECT_EQ(daemon.exitStatus(), 0);
    });
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    EXPECT_EQ(hunt(endpoint, "forked"), spid);
    talkTo(endpoint, spid);
    parentProcess.tell();
    parentProcess.hear();  // the parent has closed its copy
    talkTo(endpoint, spid);
    EXPECT_EQ(hunt(endpoint, "forked"), spid);
    finish(endpoint, spid);
    EXPECT_EQ(parentProcess.exitStatus(), 0);
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
        EXPECT_EQ(late.exitStatus(), 0);
        mirror(endpoint);
        EXPECT_EQ(linx_close(endpoint), 0);
    });
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    EXPECT_EQ(hunt(endpoint, "forked"), spid);
    talkTo(endpoint, spid);
    finish(endpoint, spid);
    EXPECT_EQ(parentProcess.exitStatus(), 0);
}

TEST_F(Fork, TheWinnerKeepsWhatWasQueuedAndKnown) {
    Child parentProcess([](Line& test) {
        LINX* forked = linx_open("forked", 0, nullptr);
        const LinxSpid known = hunt(forked, "test");
        EXPECT_NE(attach(forked, known, notice), 0u);
        EXPECT_NE(linx_request_tmo(forked, 1, nullptr), 0u);
        test.tell(spidOf(forked));
        test.hear();
        EXPECT_TRUE(receive(forked, patience, {item + 1}));  // brings the one before into the queue
        Child winner([&](Line& parent) {
            EXPECT_EQ(expectAmongOthers(forked, item).word(), 7u);
            expectSignal(forked, LINX_OS_TIMEOUT_SIG);
            EXPECT_EQ(send(forked, known, item), 0);
            parent.tell();
            expectSignal(forked, notice);
            EXPECT_EQ(linx_close(forked), 0);
        });
        winner.hear();
        expectRefusedClose(forked);
        EXPECT_EQ(winner.exitStatus(), 0);
    });
    Endpoint endpoint("test");
    const LinxSpid spid = parentProcess.hear();
    ASSERT_EQ(send(endpoint, spid, item, {7}), 0);
    ASSERT_EQ(send(endpoint, spid, item + 1), 0);
    parentProcess.tell();
    EXPECT_EQ(expectSignal(endpoint, item).sender, spid);
    endpoint.close();
    EXPECT_EQ(parentProcess.exitStatus(), 0);
}

TEST_F(Fork, TheWinnersDeathIsNoticedThoughTheLoserLives) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        Child winner([&](Line& parent) {
            parent.tell(spidOf(endpoint));
            parent.hear();
        });
        test.tell(winner.hear());
        EXPECT_EQ(linx_alloc(endpoint, 4, item), nullptr);
        EXPECT_EQ(errno, ECHILD);
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
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    parentProcess.tell();
    parentProcess.hear();
    EXPECT_EQ(expectSignal(endpoint, notice).sender, spid);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
    Endpoint next("forked");
    parentProcess.tell();
    EXPECT_EQ(parentProcess.exitStatus(), 0);
}

/// Has a child take an endpoint over, tells the spid, and has it closed there; says so, and keeps its own copy
/// untouched.
void closeInChild(Line& test) {
    LINX* endpoint = linx_open("forked", 0, nullptr);
    Child winner([&](Line& parent) {
        parent.tell(spidOf(endpoint));
        parent.hear();
        EXPECT_EQ(linx_close(endpoint), 0);
    });
    test.tell(winner.hear());
    test.hear();
    winner.tell();
    EXPECT_EQ(winner.exitStatus(), 0);
    test.tell();
    test.hear();
}

TEST_F(Fork, AnOrderlyCloseInTheChildIsToldAtOnceThoughTheParentKeepsItsCopy) {
    Child parentProcess(closeInChild);
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    parentProcess.tell();
    EXPECT_EQ(expectSignal(endpoint, notice).sender, spid);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
    parentProcess.hear();
    parentProcess.tell();
    EXPECT_EQ(parentProcess.exitStatus(), 0);
}

TEST_F(Fork, AnOrderlyCloseInTheChildIsToldToOneWhoseQueueNeverRunsDry) {
    Child parentProcess(closeInChild);
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    const LinxSpid own = spidOf(endpoint);
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(send(endpoint, own, item), 0);
    parentProcess.tell();
    parentProcess.hear();
    const uint64_t deadline = linx::coarseMilliseconds() + patience;
    std::optional<Received> received;
    do {
        received = receive(endpoint, 0);
        ASSERT_TRUE(received);
        if (received->number == notice) break;
        ASSERT_EQ(send(endpoint, own, item), 0);
    } while (linx::coarseMilliseconds() < deadline);
    EXPECT_EQ(received->number, notice);
    EXPECT_EQ(received->sender, spid);
    parentProcess.tell();
    EXPECT_EQ(parentProcess.exitStatus(), 0);
}

TEST_F(Fork, WhoTookItOverClosesItForAllAndLivesOn) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        Child winner([&](Line& parent) {
            spidOf(endpoint);
            EXPECT_EQ(linx_close(endpoint), 0);
            const Endpoint next("forked");
            parent.tell(spidOf(next));
            parent.hear();
        });
        test.tell(winner.hear());
        expectRefusedClose(endpoint);
        test.hear();
        winner.tell();
        EXPECT_EQ(winner.exitStatus(), 0);
    });
    const LinxSpid next = parentProcess.hear();
    Endpoint endpoint("test");
    EXPECT_EQ(hunt(endpoint, "forked"), next);
    parentProcess.tell();
    EXPECT_EQ(parentProcess.exitStatus(), 0);
}

TEST_F(Fork, ALoserThatDoesNothingButCloseIsToldSo) {
    Endpoint endpoint("forked");
    Child late([&](Line& parent) {
        parent.hear();
        expectRefusedClose(endpoint);
    });
    const LinxSpid spid = spidOf(endpoint);
    late.tell();
    EXPECT_EQ(late.exitStatus(), 0);
    EXPECT_EQ(hunt(endpoint, "forked"), spid);
}

TEST_F(Fork, ACopyOfAPeersDoorbellDoesNotKeepTheDescriptorReadable) {
    Child peer([](Line& parent) {
        const Endpoint endpoint("peer");
        parent.tell(spidOf(endpoint));
        parent.hear();
    });
    const LinxSpid known = peer.hear();
    Endpoint endpoint("forked");
    ASSERT_NE(attach(endpoint, known, notice), 0u);
    Child copy([](Line& parent) { parent.hear(); });
    spidOf(endpoint);  // it stays the parent's
    peer.kill9();
    EXPECT_TRUE(endpoint.awaitReadable());
    EXPECT_EQ(expectSignal(endpoint, notice, 0).sender, known);
    expectNothing(endpoint);
    EXPECT_FALSE(endpoint.readable());
    copy.tell();
    EXPECT_EQ(copy.exitStatus(), 0);
}

TEST_F(Fork, AnEndpointMayBeHandedOnThroughSeveralForks) {
    Child first([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        Child second([&](Line& parent) {
            const LinxSpid spid = spidOf(endpoint);
            Child third([&](Line& secondProcess) {
                EXPECT_EQ(spidOf(endpoint), spid);
                secondProcess.tell(spid);
                mirror(endpoint);
                EXPECT_EQ(linx_close(endpoint), 0);
            });
            const LinxSpid known = third.hear();
            expectRefusedClose(endpoint);
            parent.tell(known);
            EXPECT_EQ(third.exitStatus(), 0);
        });
        const LinxSpid spid = second.hear();
        expectRefusedClose(endpoint);
        test.tell(spid);
        EXPECT_EQ(second.exitStatus(), 0);
    });
    const LinxSpid spid = first.hear();
    Endpoint endpoint("test");
    talkTo(endpoint, spid);
    finish(endpoint, spid);
    EXPECT_EQ(first.exitStatus(), 0);
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
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Fork, AnExecInTheChildLeavesTheEndpointToTheParent) {
    Child parentProcess([](Line& test) {
        LINX* endpoint = linx_open("forked", 0, nullptr);
        const Child other([](Line& parent) {
            dup2(parent.descriptor(), STDIN_FILENO);
            execlp("cat", "cat", nullptr);
            ADD_FAILURE() << std::strerror(errno);
        });
        test.tell(spidOf(endpoint));
        mirror(endpoint);
        test.tell(static_cast<uint32_t>(other.pid()));
        test.hear();
    });
    const LinxSpid spid = parentProcess.hear();
    Endpoint endpoint("test");
    talkTo(endpoint, spid);
    finish(endpoint, spid);
    EXPECT_NE(parentProcess.hear(), 0u);
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    expectNothing(endpoint);
    parentProcess.kill9();
    EXPECT_EQ(expectSignal(endpoint, notice).sender, spid);
}

}  // namespace
