// What the living learn of an endpoint's end.

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/time.h>

#include <cerrno>
#include <random>

#include "host/system/clock.h"
#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"

namespace {

using Death = ProcessTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;
constexpr uint32_t otherNotice = 102;

/// Opens `name`, says its spid and stays until it is told to go.
Child::Body mortal(const char* name) {
    return [name](Line& parent) {
        Endpoint endpoint(name);
        parent.tell(spidOf(endpoint));
        parent.hear();
    };
}

TEST_F(Death, ASupervisorIsToldOfAKill) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    expectNothing(endpoint);
    victim.kill9();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
    expectNothing(endpoint);
}

/// A sender that never receives asks of a peer that does not receive either whether it lives.
TEST_F(Death, ASenderThatNeverReceivesNoticesAKillAlsoAfterItHasHurried) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("sender");
    for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(0, send(endpoint, spid, item));
    victim.kill9();
    unsigned unnoticed = 0;
    do {
        const uint64_t tick = linx::coarseMilliseconds();
        while (linx::coarseMilliseconds() == tick) sched_yield();
    } while (send(endpoint, spid, item) == 0 && ++unnoticed < 10);
    EXPECT_EQ(ECONNRESET, errno);
    EXPECT_LE(unnoticed, 3u);
}

TEST_F(Death, ASupervisorIsToldOfAnOrderlyEnd) {
    Child victim([](Line& parent) {
        Endpoint endpoint("victim");
        parent.tell(spidOf(endpoint));
        parent.hear();
        endpoint.close();
        parent.tell();
        parent.hear();
    });
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    victim.tell();
    victim.hear();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
}

TEST_F(Death, ASupervisorIsToldOfAnEndWithoutClosing) {
    Child victim([](Line& parent) {
        LINX* endpoint = linx_open("victim", 0, nullptr);
        parent.tell(spidOf(endpoint));
        parent.hear();
    });
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    victim.tell();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
    EXPECT_EQ(0, victim.exitStatus());
}

TEST_F(Death, TheNoticeComesAfterAllThatTheDeadHadSent) {
    constexpr uint32_t count = 500;
    Child victim([](Line& parent) {
        Endpoint endpoint("victim");
        const LinxSpid to = hunt(endpoint, "supervisor");
        parent.tell(spidOf(endpoint));
        parent.hear();
        for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(0, send(endpoint, to, item, {i}));
        parent.tell();
        parent.hear();
    });
    Endpoint endpoint("supervisor");
    const LinxSpid spid = victim.hear();
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    victim.tell();
    victim.hear();
    victim.kill9();
    for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(i, expectSignal(endpoint, item).word());
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
}

TEST_F(Death, AttachingTwiceGivesTwoNotices) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    const LinxRef first = attach(endpoint, spid, notice);
    const LinxRef second = attach(endpoint, spid, otherNotice);
    EXPECT_NE(0u, first);
    EXPECT_NE(0u, second);
    EXPECT_NE(first, second);
    victim.kill9();
    expectSignal(endpoint, notice);
    expectSignal(endpoint, otherNotice);
    expectNothing(endpoint);
}

TEST_F(Death, EverySupervisorIsTold) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    const auto supervisor = [spid](const char* name) {
        return [spid, name](Line& parent) {
            Endpoint endpoint(name);
            EXPECT_NE(0u, attach(endpoint, spid, notice));
            parent.tell();
            EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
        };
    };
    Child first(supervisor("first"));
    Child second(supervisor("second"));
    first.hear();
    second.hear();
    victim.kill9();
    EXPECT_EQ(0, first.exitStatus());
    EXPECT_EQ(0, second.exitStatus());
}

TEST_F(Death, EndpointsOfOneProcessAreToldOfEachOther) {
    Endpoint supervisor("supervisor");
    Endpoint mortalOne("mortal");
    const LinxSpid spid = spidOf(mortalOne);
    ASSERT_NE(0u, attach(supervisor, spid, notice));
    mortalOne.close();
    EXPECT_EQ(spid, expectSignal(supervisor, notice).sender);
}

TEST_F(Death, AttachingToTheDeadGivesTheNoticeAtOnce) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    victim.kill9();
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    EXPECT_EQ(spid, expectSignal(endpoint, notice, 0).sender);
    ASSERT_NE(0u, attach(endpoint, spid, otherNotice));
    EXPECT_EQ(spid, expectSignal(endpoint, otherNotice, 0).sender);
}

TEST_F(Death, AttachingToAClosedOneGivesTheNoticeAtOnce) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    victim.tell();
    ASSERT_EQ(0, victim.exitStatus());
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    EXPECT_EQ(spid, expectSignal(endpoint, notice, 0).sender);
}

TEST_F(Death, WhatTheDeadHadSentComesBeforeANoticeAskedForLate) {
    Child victim([](Line& parent) {
        Endpoint endpoint("victim");
        ASSERT_EQ(0, send(endpoint, hunt(endpoint, "supervisor"), item));
        parent.tell(spidOf(endpoint));
        parent.hear();
    });
    Endpoint endpoint("supervisor");
    const LinxSpid spid = victim.hear();
    victim.kill9();
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    expectSignal(endpoint, item, 0);
    expectSignal(endpoint, notice, 0);
}

TEST_F(Death, NobodyCanBeAttachedToWhoNeverWas) {
    Endpoint endpoint("supervisor");
    for (const LinxSpid spid : {0u, spidOf(endpoint) + 1, ~0u}) {
        EXPECT_EQ(0u, attach(endpoint, spid, notice)) << spid;
        EXPECT_EQ(ESRCH, errno) << spid;
        EXPECT_EQ(ESRCH, send(endpoint, spid, item)) << spid;
    }
    expectNothing(endpoint);
}

TEST_F(Death, TheNameOfTheDeadIsStillKnown) {
    Child killed(mortal("killed"));
    Child closed(mortal("closed"));
    const LinxSpid killedSpid = killed.hear();
    const LinxSpid closedSpid = closed.hear();
    killed.kill9();
    closed.tell();
    EXPECT_EQ(0, closed.exitStatus());
    Endpoint endpoint("asker");
    ASSERT_NE(0u, attach(endpoint, killedSpid, notice));
    expectSignal(endpoint, notice);
    EXPECT_EQ("killed", nameOf(endpoint, killedSpid));
    EXPECT_EQ("closed", nameOf(endpoint, closedSpid));
}

TEST_F(Death, SendingToTheKilledSaysSo) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("sender");
    victim.kill9();
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
}

TEST_F(Death, SendingToAKilledAcquaintanceSaysSo) {
    Child victim(mortal("victim"));
    Endpoint endpoint("sender");
    const LinxSpid spid = victim.hear();
    ASSERT_EQ(spid, hunt(endpoint, "victim"));
    victim.kill9();
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
}

TEST_F(Death, SendingToTheClosedSaysSo) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("sender");
    ASSERT_EQ(0, send(endpoint, spid, item));
    victim.tell();
    ASSERT_EQ(0, victim.exitStatus());
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
}

TEST_F(Death, ASenderThatNeverReceivesNoticesToo) {
    Child victim(mortal("victim"));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("sender");
    ASSERT_EQ(0, send(endpoint, spid, item));  // nobody empties the mailbox, so nobody rings any more
    victim.kill9();
    uint32_t sent = 0;
    int result = 0;
    while (result == 0 && sent < 1000000) {
        result = send(endpoint, spid, item);
        ++sent;
    }
    EXPECT_EQ(ECONNRESET, result) << "after " << sent;
}

void stumbleSoon() {
    static std::minstd_rand random(1);
    const itimerval soon = {{0, 0}, {0, static_cast<suseconds_t>(1 + random() % 100)}};
    setitimer(ITIMER_REAL, &soon, nullptr);
}

/// From now on this process is held up for a millisecond, again and again, wherever it happens to be.
void stumble() {
    signal(SIGALRM, [](int) {
        poll(nullptr, 0, 1);
        stumbleSoon();
    });
    stumbleSoon();
}

TEST_F(Death, WhatWasReceivedCountsAsSentThoughTheReceiverEndsBeforeTheSenderKnows) {
    constexpr uint32_t rounds = 500;
    const auto name = [](uint32_t round) { return "brief" + std::to_string(round); };
    Child brief([&](Line&) {
        for (uint32_t round = 0; round < rounds && !HasFailure(); ++round) {
            Endpoint endpoint(name(round));
            // It does not wait to be woken, so that it may have received and ended before the sender rings.
            std::optional<Received> received;
            for (uint32_t tries = 0; !received && tries < 1000 * patience; ++tries) received = receive(endpoint, 0);
            EXPECT_TRUE(received);
        }
    });
    Child sender([&](Line&) {
        stumble();
        Endpoint endpoint("sender");
        for (uint32_t round = 0; round < rounds; ++round) {
            ASSERT_EQ(0, send(endpoint, hunt(endpoint, name(round)), item)) << "round " << round;
        }
    });
    EXPECT_EQ(0, sender.exitStatus());
    EXPECT_EQ(0, brief.exitStatus());
}

TEST_F(Death, ANewIncarnationHasANewSpid) {
    Endpoint endpoint("asker");
    std::vector<LinxSpid> seen;
    for (int i = 0; i < 20; ++i) {
        Child incarnation(mortal("again"));
        const LinxSpid spid = incarnation.hear();
        EXPECT_EQ(spid, hunt(endpoint, "again"));
        for (const LinxSpid earlier : seen) {
            EXPECT_NE(earlier, spid);
            EXPECT_EQ(ECONNRESET, send(endpoint, earlier, item));
        }
        EXPECT_EQ(0, send(endpoint, spid, item));
        seen.push_back(spid);
        incarnation.kill9();
    }
}

TEST_F(Death, AHuntForAKilledAcquaintanceIsAnsweredByItsSuccessor) {
    Endpoint endpoint("asker");
    for (int i = 0; i < 10; ++i) {
        Child peer(mortal("again"));
        const LinxSpid killed = peer.hear();
        ASSERT_EQ(killed, hunt(endpoint, "again"));
        ASSERT_EQ(0, send(endpoint, killed, item));
        peer.kill9();
        ASSERT_EQ(0, linx_hunt(endpoint, "again", nullptr));
        expectNothing(endpoint);
        Endpoint successor("again");
        EXPECT_EQ(spidOf(successor), expectSignal(endpoint, LINX_OS_HUNT_SIG).sender);
    }
}

TEST_F(Death, TheHuntsOfTheDeadAreDropped) {
    for (const bool killed : {true, false}) {
        Child hunter([](Line& parent) {
            Endpoint endpoint("hunter");
            EXPECT_EQ(0, linx_hunt(endpoint, "late", nullptr));
            parent.tell();
            parent.hear();
        });
        hunter.hear();
        if (killed) {
            hunter.kill9();
        } else {
            hunter.tell();
            ASSERT_EQ(0, hunter.exitStatus());
        }
        Endpoint next("hunter");
        Endpoint late("late");
        expectNothing(next);
        EXPECT_EQ(spidOf(late), hunt(next, "late"));
    }
}

TEST_F(Death, OpeningANameThatOnlyTheDeadHuntForWorks) {
    Child hunter([](Line& parent) {
        Endpoint endpoint("hunter");
        EXPECT_EQ(0, linx_hunt(endpoint, "late", nullptr));
        parent.tell();
        parent.hear();
    });
    hunter.hear();
    hunter.kill9();
    Endpoint late("late");  // nobody has noticed the hunter's end yet
    Endpoint endpoint("other");
    EXPECT_EQ(spidOf(late), hunt(endpoint, "late"));
}

TEST_F(Death, ASupervisorMayEndBeforeTheSupervised) {
    Endpoint endpoint("supervised");
    const LinxSpid spid = spidOf(endpoint);
    for (const bool killed : {true, false}) {
        Child supervisor([&](Line& parent) {
            Endpoint own("supervisor");
            EXPECT_NE(0u, attach(own, spid, notice));
            parent.tell();
            parent.hear();
        });
        supervisor.hear();
        if (killed) {
            supervisor.kill9();
        } else {
            supervisor.tell();
            EXPECT_EQ(0, supervisor.exitStatus());
        }
    }
    expectNothing(endpoint);
    EXPECT_EQ(0, send(endpoint, spid, item));
    expectSignal(endpoint, item);
}

}  // namespace
