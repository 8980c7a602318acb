// Two nodes, as processes.

#include "tests/link/program/running.h"

namespace {

using linktest::machine;
using linktest::ProgramTest;
using linktest::Running;
using linktest::TakenPort;

class RunningTest : public ProgramTest {
protected:
    RunningTest() {
        setenv("LINX_LOG", "stderr", 1);
        unsetenv("LINX_LOG_LEVEL");
        address = TakenPort().address();  // and free again
        configure("key = \"link.key\"\ndomain = \"" + ownDomain.path() + "\"\nlisten = \"" + address + "\"\n" +
                      linkTo(peerKey, "toPeer"),
                  "own.conf");
        dialFrom("peer.key");
    }
    void dialFrom(const std::string& key) {
        configure("key = \"" + key + "\"\ndomain = \"" + defaultDomain.path() + "\"\n" + linkTo(ownKey, "toOwn") +
                      "connect = \"" + address + "\"\ntolerance = 500\n",
                  "peer.conf");
    }

    const linxtest::TestDomain ownDomain;
    std::string address;
};

TEST_F(RunningTest, TwoNodesFindEachOtherAndOneTakesItsLeave) {
    Running own(directory, "own.conf");
    Running peer(directory, "peer.conf");
    EXPECT_TRUE(own.hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer.hasLogged("toOwn is up; over there: " + machine));
    EXPECT_EQ(own.end(SIGTERM), 0);
    EXPECT_TRUE(own.hasLogged("toPeer is down: one side took its leave"));
    EXPECT_TRUE(peer.hasLogged("toOwn is down: one side took its leave"));
    EXPECT_TRUE(peer.hasLogged("toOwn cannot be dialled: nobody listens there"));
    EXPECT_EQ(peer.end(SIGINT), 0);
}

TEST_F(RunningTest, OneThatIsKilledAndBackIsFoundAgainFromEitherSide) {
    std::optional<Running> own(std::in_place, directory, "own.conf");
    std::optional<Running> peer(std::in_place, directory, "peer.conf");
    EXPECT_TRUE(own->hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer->hasLogged("toOwn is up; over there: " + machine));
    own->end(SIGKILL);
    EXPECT_TRUE(peer->hasLogged("toOwn is down: the connection was lost"));
    own.emplace(directory, "own.conf");
    EXPECT_TRUE(own->hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer->hasLogged("toOwn is up; over there: " + machine));
    peer->end(SIGKILL);
    EXPECT_TRUE(own->hasLogged("toPeer is down: the connection was lost"));
    peer.emplace(directory, "peer.conf");
    EXPECT_TRUE(own->hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer->hasLogged("toOwn is up; over there: " + machine));
}

TEST_F(RunningTest, OneThatIsStoppedCountsAsSilentAndIsFoundAgain) {
    Running own(directory, "own.conf");
    Running peer(directory, "peer.conf");
    EXPECT_TRUE(peer.hasLogged("toOwn is up; over there: " + machine));
    own.send(SIGSTOP);
    EXPECT_TRUE(peer.hasLogged("toOwn is down: the peer was silent"));
    own.send(SIGCONT);
    EXPECT_TRUE(peer.hasLogged("toOwn is up; over there: " + machine));
}

TEST_F(RunningTest, OneWithAnotherKeyIsTurnedAwayAndBothTellIt) {
    keygen("strange.key");
    dialFrom("strange.key");
    Running own(directory, "own.conf");
    Running stranger(directory, "peer.conf");
    EXPECT_TRUE(own.hasLogged("turned away for their keys so far: 1"));
    EXPECT_TRUE(stranger.hasLogged("toOwn cannot be dialled: the peer does not know this node's key"));
}

TEST_F(RunningTest, WhereTheAddressIsTakenItDoesNotStart) {
    const TakenPort taken;
    configure("key = \"link.key\"\nlisten = \"" + taken.address() + "\"\n" + linkTo(peerKey, "toPeer"));
    const linktest::Transcript second = run("link.conf");
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "link.conf: cannot listen at " + taken.address() + ": Address already in use\n");
}

TEST_F(RunningTest, AWrongConfigurationDoesNotStart) {
    configure("");
    const linktest::Transcript transcript = run("link.conf");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_NE(transcript.errors, "");
}

}  // namespace
