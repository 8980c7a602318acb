// Peers that are there, that are not, and that end.

#include <stdexcept>

#include "fixture.h"

namespace {

class PeersTest : public PlatformTest {
protected:
    std::string hunt(const std::string& name) {
        linx_hunt(self, name.c_str(), nullptr);
        return receiveWithin(0);
    }

    static std::string foundAt(LinxSpid spid) { return "251 '' from " + std::to_string(spid); }

    std::string nameOf(LinxSpid spid) {
        char* name = nullptr;
        if (linx_get_name(self, spid, &name) != 0) return "error " + std::to_string(errno);
        const std::string copy = name;
        linx_free_name(self, &name);
        return copy;
    }

    /// The error, 0 for none.
    int send(LinxSpid to) {
        signal = linx_alloc(self, 4, 300);
        return linx_send(self, &signal, to) == 0 ? 0 : errno;
    }

    void attach(LinxSpid spid, std::uint32_t number) {
        signal = linx_alloc(self, 4, number);
        EXPECT_NE(linx_attach(self, &signal, spid), 0u);
    }
};

TEST_F(PeersTest, APeerIsFoundAndNamed) {
    const LinxSpid peer = platform.addPeer("Peer");
    const LinxSpid other = platform.addPeer("Other");
    EXPECT_NE(peer, other);
    EXPECT_EQ(hunt("Peer"), foundAt(peer));
    EXPECT_EQ(hunt("Peer"), foundAt(peer));
    EXPECT_EQ(hunt("Other"), foundAt(other));
    EXPECT_EQ(nameOf(peer), "Peer");
    EXPECT_EQ(nameOf(other), "Other");
    EXPECT_EQ(send(peer), 0);
}

TEST_F(PeersTest, AnEndpointOfTheProgramIsNamed) {
    linx_open("Second", 0, nullptr);
    EXPECT_EQ(nameOf(1), "Self");
    EXPECT_EQ(nameOf(100), "Second");
    EXPECT_EQ(nameOf(7), "error " + std::to_string(ESRCH));
}

TEST_F(PeersTest, AHuntIsAnsweredOnceThePeerIsThere) {
    EXPECT_EQ(hunt("Late"), "nothing");
    signal = linx_alloc(self, 4, 400);
    linx_hunt(self, "Late", &signal);
    EXPECT_EQ(signal, nullptr);
    platform.addPeer("Other");
    EXPECT_EQ(receiveWithin(0), "nothing");
    const LinxSpid late = platform.addPeer("Late");
    EXPECT_EQ(receiveWithin(0), foundAt(late));
    EXPECT_EQ(receiveWithin(0), "400 '' from " + std::to_string(late));
    EXPECT_EQ(receiveWithin(0), "nothing");
}

TEST_F(PeersTest, AnswersToHuntsCanBeChosen) {
    platform.answerHunts("Peer", {7, 8});
    EXPECT_EQ(hunt("Peer"), foundAt(7));
    EXPECT_EQ(hunt("Peer"), foundAt(8));
    EXPECT_EQ(hunt("Peer"), foundAt(8));
    platform.answerHunts("Peer", {});
    EXPECT_EQ(hunt("Peer"), "nothing");
}

TEST_F(PeersTest, APeerThatHasEndedIsNotFoundAndGetsNothing) {
    const LinxSpid peer = platform.addPeer("Peer");
    platform.endPeer("Peer");
    EXPECT_EQ(hunt("Peer"), "nothing");
    EXPECT_EQ(send(peer), ECONNRESET);
    EXPECT_EQ(nameOf(peer), "Peer");
    ASSERT_EQ(platform.sent.size(), 1u);
    EXPECT_EQ(platform.sent[0].error, ECONNRESET);
}

TEST_F(PeersTest, ItsEndIsToldToWhoAskedForIt) {
    const LinxSpid peer = platform.addPeer("Peer");
    const LinxSpid other = platform.addPeer("Other");
    attach(peer, 400);
    attach(other, 401);
    attach(peer, 402);
    EXPECT_EQ(receiveWithin(0), "nothing");
    platform.endPeer("Peer");
    EXPECT_EQ(receiveWithin(0), "400 '' from " + std::to_string(peer));
    EXPECT_EQ(receiveWithin(0), "402 '' from " + std::to_string(peer));
    EXPECT_EQ(receiveWithin(0), "nothing");
    attach(peer, 403);
    EXPECT_EQ(receiveWithin(0), "403 '' from " + std::to_string(peer));
}

TEST_F(PeersTest, APeerThatIsAddedAgainHasBeenStartedAnew) {
    const LinxSpid before = platform.addPeer("Peer");
    attach(before, 400);
    const LinxSpid after = platform.addPeer("Peer");
    EXPECT_NE(before, after);
    EXPECT_EQ(receiveWithin(0), "400 '' from " + std::to_string(before));
    EXPECT_EQ(hunt("Peer"), foundAt(after));
    EXPECT_EQ(send(before), ECONNRESET);
    EXPECT_EQ(send(after), 0);
}

TEST_F(PeersTest, WhoIsNotThereCannotEnd) {
    EXPECT_THROW(platform.endPeer("Peer"), std::invalid_argument);
    platform.addPeer("Peer");
    platform.endPeer("Peer");
    EXPECT_THROW(platform.endPeer("Peer"), std::invalid_argument);
}

}  // namespace
