// What one word size learns of the end of the other.

#include <cerrno>

#include "tests/mixed/support/mixed_test.h"

namespace {

using Death = MixedTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;
constexpr uint32_t otherNotice = 102;
constexpr uint32_t lastWords = 500;

/// Stays until told to go.
const Role mortal("Death.mortal", [](Line& parent) {
    Endpoint endpoint("mortal");
    parent.tell(spidOf(endpoint));
    parent.hear();
});

/// Sends much when told to, and then waits for its end.
const Role talkative("Death.talkative", [](Line& parent) {
    Endpoint endpoint("mortal");
    const LinxSpid to = hunt(endpoint, "supervisor");
    parent.tell(spidOf(endpoint));
    parent.hear();
    for (uint32_t i = 0; i < lastWords; ++i) ASSERT_EQ(0, send(endpoint, to, item, {i}));
    parent.tell();
    parent.hear();
});

/// Supervises the spid that it is told, and says when it begins and when it has been told of the end.
void supervise(Line& parent) {
    Endpoint endpoint("supervisor");
    parent.tell();
    const LinxSpid spid = parent.hear();
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    expectNothing(endpoint);
    parent.tell();
    const uint32_t said = parent.hear();
    for (uint32_t i = 0; i < said; ++i) ASSERT_EQ(i, expectSignal(endpoint, item).word());
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
    EXPECT_EQ("mortal", nameOf(endpoint, spid));
    expectNothing(endpoint);
    EXPECT_EQ(ECONNRESET, send(endpoint, spid, item));
    ASSERT_NE(0u, attach(endpoint, spid, otherNotice));
    EXPECT_EQ(spid, expectSignal(endpoint, otherNotice, 0).sender);
}

const Role supervisor("Death.supervisor", supervise);

struct Sizes {
    Size supervisor;
    Size supervised;
};

std::ostream& operator<<(std::ostream& out, const Sizes& sizes) {
    return out << sizes.supervisor << " supervises " << sizes.supervised;
}

class Supervision : public MixedTest, public testing::WithParamInterface<Sizes> {};

TEST_P(Supervision, TellsOfAKillWithSpidAndName) {
    Child watcher(supervisor.in(GetParam().supervisor));
    watcher.hear();
    Child victim(mortal.in(GetParam().supervised));
    watcher.tell(victim.hear());
    watcher.hear();
    victim.kill9();
    watcher.tell(0);
    EXPECT_EQ(0, watcher.exitStatus());
}

TEST_P(Supervision, TellsOfAnOrderlyEndWithSpidAndName) {
    Child watcher(supervisor.in(GetParam().supervisor));
    watcher.hear();
    Child victim(mortal.in(GetParam().supervised));
    watcher.tell(victim.hear());
    watcher.hear();
    victim.tell();
    EXPECT_EQ(0, victim.exitStatus());
    watcher.tell(0);
    EXPECT_EQ(0, watcher.exitStatus());
}

TEST_P(Supervision, TellsOfAKillAfterAllThatTheDeadHadSent) {
    Child watcher(supervisor.in(GetParam().supervisor));
    watcher.hear();
    Child victim(talkative.in(GetParam().supervised));
    watcher.tell(victim.hear());
    watcher.hear();
    victim.tell();
    victim.hear();
    victim.kill9();
    watcher.tell(lastWords);
    EXPECT_EQ(0, watcher.exitStatus());
}

INSTANTIATE_TEST_SUITE_P(Sizes, Supervision,
                         testing::Values(Sizes{Size::own, Size::other}, Sizes{Size::other, Size::own},
                                         Sizes{Size::other, Size::other}));

TEST_F(Death, EverySupervisorOfEitherSizeIsTold) {
    Child victim(mortal.in(Size::other));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("own");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    Child watcher(supervisor.in(Size::other));
    watcher.hear();
    watcher.tell(spid);
    watcher.hear();
    victim.kill9();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
    watcher.tell(0);
    EXPECT_EQ(0, watcher.exitStatus());
}

TEST_F(Death, SendingToTheKilledOfTheOtherSizeSaysSo) {
    for (const bool acquainted : {false, true}) {
        Child victim(mortal.in(Size::other));
        const LinxSpid spid = victim.hear();
        Endpoint endpoint("sender");
        if (acquainted) {
            ASSERT_EQ(0, send(endpoint, spid, item));
        }
        victim.kill9();
        int result = 0;
        for (int sent = 0; result == 0 && sent < 1000000; ++sent) result = send(endpoint, spid, item);
        EXPECT_EQ(ECONNRESET, result);
    }
}

TEST_F(Death, AStoppedPeerOfTheOtherSizeIsNotTakenForDead) {
    Child victim(mortal.in(Size::other));
    const LinxSpid spid = victim.hear();
    Endpoint endpoint("supervisor");
    ASSERT_NE(0u, attach(endpoint, spid, notice));
    victim.stop();
    EXPECT_EQ(0, send(endpoint, spid, item));
    expectNothing(endpoint);
    victim.kill9();
    EXPECT_EQ(spid, expectSignal(endpoint, notice).sender);
}

}  // namespace
