// What the living learn of an endpoint's end.

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "host/system/clock.h"
#include "tests/kit/role_test.h"
#include "tests/kit/signals.h"

namespace {

using Death = RoleTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;
constexpr uint32_t otherNotice = 102;

/// Opens `name`, says its spid and stays until it is told to go.
void live(Line& parent, const char* name) {
    Endpoint endpoint(name);
    parent.tell(spidOf(endpoint));
    parent.hear();
}

const Role mortal("Death.mortal", [](Line& parent) { live(parent, "mortal"); });
const Role otherMortal("Death.otherMortal", [](Line& parent) { live(parent, "otherMortal"); });

/// A child in a role, supervised as soon as it has said its spid.
class Supervised : public Child {
public:
    explicit Supervised(const Role& role) : Child(role) { EXPECT_NE(attach(supervisor, spid, notice), 0u); }

    const Endpoint supervisor{"supervisor"};
    const LinxSpid spid = met(hear(), there("mortal"));
};

/// Expects the notice of an end, and that the end is known from then on.
void expectNoticeOf(LINX* endpoint, LinxSpid spid, const std::string& name = there("mortal")) {
    EXPECT_EQ(expectSignal(endpoint, notice).sender, spid);
    EXPECT_EQ(nameOf(endpoint, spid), name);
    expectNothing(endpoint);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
    ASSERT_NE(attach(endpoint, spid, otherNotice), 0u);
    EXPECT_EQ(expectSignal(endpoint, otherNotice, 0).sender, spid);
}

TEST_F(Death, ASupervisorIsToldOfAKill) {
    Supervised victim(mortal);
    expectNothing(victim.supervisor);
    victim.kill9();
    expectNoticeOf(victim.supervisor, victim.spid);
}

/// A sender that never receives asks of a peer that does not receive either whether it lives.
TEST_F(Death, ASenderThatNeverReceivesNoticesAKillAlsoAfterItHasHurried) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("sender");
    for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(send(endpoint, spid, item), 0);
    victim.kill9();
    unsigned unnoticed = 0;
    do {
        const uint64_t tick = linx::coarseMilliseconds();
        while (linx::coarseMilliseconds() == tick) sched_yield();
    } while (send(endpoint, spid, item) == 0 && ++unnoticed < 10);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_LE(unnoticed, 3u);
}

/// Closes when it is told to, and stays.
const Role orderly("Death.orderly", [](Line& parent) {
    live(parent, "mortal");
    parent.tell();
    parent.hear();
});

TEST_F(Death, ASupervisorIsToldOfAnOrderlyEnd) {
    Supervised victim(orderly);
    victim.tell();
    victim.hear();
    expectNoticeOf(victim.supervisor, victim.spid);
}

const Role careless("Death.careless", [](Line& parent) {
    LINX* endpoint = linx_open("mortal", 0, nullptr);
    parent.tell(spidOf(endpoint));
    parent.hear();
});

TEST_F(Death, ASupervisorIsToldOfAnEndWithoutClosing) {
    Supervised victim(careless);
    victim.tell();
    expectNoticeOf(victim.supervisor, victim.spid);
    EXPECT_EQ(victim.exitStatus(), 0);
}

constexpr uint32_t lastWords = 500;

/// Sends much when told to, and then waits for its end.
const Role talkative("Death.talkative", [](Line& parent) {
    Endpoint endpoint("mortal");
    const LinxSpid to = hunt(endpoint, here("supervisor"));
    parent.tell(spidOf(endpoint));
    parent.hear();
    for (uint32_t i = 0; i < lastWords; ++i) ASSERT_EQ(send(endpoint, to, item, {i}), 0);
    parent.tell();
    parent.hear();
});

TEST_F(Death, TheNoticeComesAfterAllThatTheDeadHadSent) {
    Supervised victim(talkative);
    expectNothing(victim.supervisor);
    victim.tell();
    victim.hear();
    victim.kill9();
    for (uint32_t i = 0; i < lastWords; ++i) ASSERT_EQ(expectSignal(victim.supervisor, item).word(), i);
    expectNoticeOf(victim.supervisor, victim.spid);
}

TEST_F(Death, AttachingTwiceGivesTwoNotices) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("supervisor");
    const LinxRef first = attach(endpoint, spid, notice);
    const LinxRef second = attach(endpoint, spid, otherNotice);
    EXPECT_NE(first, 0u);
    EXPECT_NE(second, 0u);
    EXPECT_NE(second, first);
    victim.kill9();
    expectSignal(endpoint, notice);
    expectSignal(endpoint, otherNotice);
    expectNothing(endpoint);
}

/// Supervises the spid that it is told, and says when it begins.
const Role supervisor("Death.supervisor", [](Line& parent) {
    const LinxSpid spid = met(parent.hear(), there("mortal"));
    Endpoint endpoint("supervisor of " + std::to_string(spid) + " in " + std::to_string(getpid()));
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    expectNothing(endpoint);
    parent.tell();
    expectNoticeOf(endpoint, spid);
});

TEST_F(Death, EverySupervisorIsTold) {
    Supervised victim(mortal);
    Child first(supervisor);
    Child second(supervisor.in(Size::own));
    for (const Child* child : {&first, &second}) {
        child->tell(victim.spid);
        child->hear();
    }
    victim.kill9();
    expectNoticeOf(victim.supervisor, victim.spid);
    EXPECT_EQ(first.exitStatus(), 0);
    EXPECT_EQ(second.exitStatus(), 0);
}

TEST_F(Death, EndpointsOfOneProcessAreToldOfEachOther) {
    Endpoint endpoint("supervisor");
    Endpoint supervised("mortal");
    const LinxSpid spid = spidOf(supervised);
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    supervised.close();
    expectNoticeOf(endpoint, spid, "mortal");
}

TEST_F(Death, AttachingToTheDeadGivesTheNoticeAtOnce) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("supervisor");
    victim.kill9();
    learnEndOf(spid);
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    EXPECT_EQ(expectSignal(endpoint, notice, 0).sender, spid);
    ASSERT_NE(attach(endpoint, spid, otherNotice), 0u);
    EXPECT_EQ(expectSignal(endpoint, otherNotice, 0).sender, spid);
}

TEST_F(Death, AttachingToAClosedOneGivesTheNoticeAtOnce) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("supervisor");
    victim.tell();
    ASSERT_EQ(victim.exitStatus(), 0);
    learnEndOf(spid);
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    EXPECT_EQ(expectSignal(endpoint, notice, 0).sender, spid);
}

const Role terse("Death.terse", [](Line& parent) {
    Endpoint endpoint("mortal");
    ASSERT_EQ(send(endpoint, hunt(endpoint, here("supervisor")), item), 0);
    parent.tell(spidOf(endpoint));
    parent.hear();
});

TEST_F(Death, WhatTheDeadHadSentComesBeforeANoticeAskedForLate) {
    Child victim(terse);
    Endpoint endpoint("supervisor");
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    victim.kill9();
    learnEndOf(spid);
    ASSERT_NE(attach(endpoint, spid, notice), 0u);
    expectSignal(endpoint, item, 0);
    expectSignal(endpoint, notice, 0);
}

TEST_F(Death, NobodyCanBeAttachedToWhoNeverWas) {
    Endpoint endpoint("supervisor");
    for (const LinxSpid spid : {0u, spidOf(endpoint) + 1, ~0u}) {
        EXPECT_EQ(attach(endpoint, spid, notice), 0u) << spid;
        EXPECT_EQ(errno, ESRCH) << spid;
        EXPECT_EQ(send(endpoint, spid, item), ESRCH) << spid;
    }
    expectNothing(endpoint);
}

TEST_F(Death, TheNameOfTheDeadIsStillKnown) {
    Child killed(mortal);
    Child closed(otherMortal);
    const LinxSpid killedSpid = met(killed.hear(), there("mortal"));
    const LinxSpid closedSpid = met(closed.hear(), there("otherMortal"));
    killed.kill9();
    closed.tell();
    EXPECT_EQ(closed.exitStatus(), 0);
    Endpoint endpoint("asker");
    ASSERT_NE(attach(endpoint, killedSpid, notice), 0u);
    expectSignal(endpoint, notice);
    EXPECT_EQ(nameOf(endpoint, killedSpid), there("mortal"));
    EXPECT_EQ(nameOf(endpoint, closedSpid), there("otherMortal"));
}

TEST_F(Death, SendingToTheKilledSaysSo) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("sender");
    victim.kill9();
    learnEndOf(spid);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
}

TEST_F(Death, SendingToAKilledAcquaintanceSaysSo) {
    Child victim(mortal);
    Endpoint endpoint("sender");
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    ASSERT_EQ(hunt(endpoint, there("mortal")), spid);
    victim.kill9();
    learnEndOf(spid);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
}

TEST_F(Death, SendingToTheClosedSaysSo) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("sender");
    ASSERT_EQ(send(endpoint, spid, item), 0);
    victim.tell();
    ASSERT_EQ(victim.exitStatus(), 0);
    learnEndOf(spid);
    EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
}

TEST_F(Death, ASenderThatNeverReceivesNoticesToo) {
    Child victim(mortal);
    const LinxSpid spid = met(victim.hear(), there("mortal"));
    Endpoint endpoint("sender");
    ASSERT_EQ(send(endpoint, spid, item), 0);  // nobody empties the mailbox, so nobody rings any more
    victim.kill9();
    uint32_t sent = 0;
    int result = 0;
    while (result == 0 && sent < 1000000) {
        result = send(endpoint, spid, item);
        ++sent;
    }
    EXPECT_EQ(result, ECONNRESET) << "after " << sent;
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

constexpr uint32_t briefRounds = 500;

std::string briefName(uint32_t round) {
    return "brief" + std::to_string(round);
}

/// Does not wait to be woken, so that it may have received and ended before the sender rings.
const Role brief("Death.brief", [](Line&) {
    for (uint32_t round = 0; round < briefRounds && !testing::Test::HasFailure(); ++round) {
        Endpoint endpoint(briefName(round));
        std::optional<Received> received;
        for (uint32_t tries = 0; !received && tries < 1000 * patience; ++tries) received = receive(endpoint, 0);
        EXPECT_TRUE(received);
    }
});

const Role stumbling("Death.stumbling", [](Line&) {
    stumble();
    Endpoint endpoint("sender");
    for (uint32_t round = 0; round < briefRounds; ++round) {
        ASSERT_EQ(send(endpoint, hunt(endpoint, there(briefName(round))), item), 0) << "round " << round;
    }
});

TEST_F(Death, WhatWasReceivedCountsAsSentThoughTheReceiverEndsBeforeTheSenderKnows) {
    Child receiver(brief);
    Child sender(stumbling.in(Size::own));
    EXPECT_EQ(sender.exitStatus(), 0);
    EXPECT_EQ(receiver.exitStatus(), 0);
}

TEST_F(Death, AStoppedPeerIsNotTakenForDead) {
    Supervised victim(mortal);
    victim.stop();
    EXPECT_EQ(send(victim.supervisor, victim.spid, item), 0);
    expectNothing(victim.supervisor);
    victim.kill9();
    EXPECT_EQ(expectSignal(victim.supervisor, notice).sender, victim.spid);
}

TEST_F(Death, ANewIncarnationHasANewSpid) {
    Endpoint endpoint("asker");
    std::vector<LinxSpid> seen;
    for (int i = 0; i < 20; ++i) {
        Child incarnation(mortal);
        const LinxSpid spid = met(incarnation.hear(), there("mortal"));
        EXPECT_EQ(hunt(endpoint, there("mortal")), spid);
        for (const LinxSpid earlier : seen) {
            EXPECT_NE(spid, earlier);
            EXPECT_EQ(send(endpoint, earlier, item), ECONNRESET);
        }
        EXPECT_EQ(send(endpoint, spid, item), 0);
        seen.push_back(spid);
        incarnation.kill9();
        learnEndOf(spid);
    }
}

TEST_F(Death, AHuntForAKilledAcquaintanceIsAnsweredByItsSuccessor) {
    Endpoint endpoint("asker");
    for (int i = 0; i < 10; ++i) {
        Child peer(mortal);
        const LinxSpid killed = peer.hear();
        ASSERT_EQ(hunt(endpoint, "mortal"), killed);
        ASSERT_EQ(send(endpoint, killed, item), 0);
        peer.kill9();
        ASSERT_EQ(linx_hunt(endpoint, "mortal", nullptr), 0);
        expectNothing(endpoint);
        Endpoint successor("mortal");
        EXPECT_EQ(expectSignal(endpoint, LINX_OS_HUNT_SIG).sender, spidOf(successor));
    }
}

const Role hunter("Death.hunter", [](Line& parent) {
    Endpoint endpoint("hunter");
    EXPECT_EQ(linx_hunt(endpoint, here("late").c_str(), nullptr), 0);
    parent.tell();
    parent.hear();
});

TEST_F(Death, TheHuntsOfTheDeadAreDropped) {
    for (const bool killed : {true, false}) {
        Child hunting(hunter);
        hunting.hear();
        if (killed) {
            hunting.kill9();
        } else {
            hunting.tell();
            ASSERT_EQ(hunting.exitStatus(), 0);
        }
        Endpoint next("hunter");
        Endpoint late("late");
        expectNothing(next);
        EXPECT_EQ(hunt(next, "late"), spidOf(late));
    }
}

TEST_F(Death, OpeningANameThatOnlyTheDeadHuntForWorks) {
    Child hunting(hunter);
    hunting.hear();
    hunting.kill9();
    Endpoint late("late");  // nobody has noticed the hunter's end yet
    Endpoint endpoint("other");
    EXPECT_EQ(hunt(endpoint, "late"), spidOf(late));
}

const Role leaver("Death.leaver", [](Line& parent) {
    Endpoint endpoint("supervisor");
    EXPECT_NE(attach(endpoint, met(parent.hear(), here("supervised")), notice), 0u);
    parent.tell();
    parent.hear();
});

TEST_F(Death, ASupervisorMayEndBeforeTheSupervised) {
    Endpoint endpoint("supervised");
    const LinxSpid spid = spidOf(endpoint);
    for (const bool killed : {true, false}) {
        Child watcher(leaver);
        watcher.tell(spid);
        watcher.hear();
        if (killed) {
            watcher.kill9();
        } else {
            watcher.tell();
            EXPECT_EQ(watcher.exitStatus(), 0);
        }
    }
    expectNothing(endpoint);
    EXPECT_EQ(send(endpoint, spid, item), 0);
    expectSignal(endpoint, item);
}

}  // namespace
