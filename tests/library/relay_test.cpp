#include <cerrno>
#include <memory>
#include <string>

#include "fixture.h"

namespace {

class RelayTest : public EndpointTest {
protected:
    RelayTest() {
        message.Allocate(300, 4, nullptr);  // s1
        message.Fill("abcd", 4);
        message.SetSender("First");
        platform.takeCalls();
    }

    void knowPeer() {
        platform.answerHunts("Peer", {7});
        endpoint.ResolveDestination("Peer", true);
        platform.takeCalls();
    }

    RelayMessage message{&endpoint};
    const std::string calling = "log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = ";
};

TEST_F(RelayTest, WithoutInitItIsRefused) {
    RelayMessage unsent(&unopened);
    EXPECT_EQ(unopened.Relay(unsent, "Peer"), -1);
    EXPECT_EQ(unopened.Relay(message, "Peer"), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:1134 LinxIpc::Attach use of un-initialized object",
                                                  "log 2 linxIpc:1134 LinxIpc::Attach use of un-initialized object"));
}

TEST_F(RelayTest, AnotherEndpointsMessageIsRefusedAndKeepsItsSignal) {
    LinxIpc other("Other");
    other.Init();
    platform.takeCalls();
    EXPECT_EQ(other.Relay(message, "Peer"), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 2 linxIpc:1139 Signal must be sent from originating endpoint"));
    EXPECT_EQ(platform.describe(message.Sig()), "300 'abcd'");
}

TEST_F(RelayTest, TheSignalItselfGoesOutAndTheMessageIsEmptied) {
    knowPeer();
    EXPECT_EQ(endpoint.Relay(message, "Peer"), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_send(s1, 7)"));
    ASSERT_EQ(platform.sent.size(), 1u);
    EXPECT_EQ(platform.sent[0].number, 300u);
    EXPECT_EQ(platform.sent[0].payload, "abcd");
    EXPECT_EQ(message.Sig(), nullptr);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.Length(), 4u);
    EXPECT_EQ(message.GetSender(), "First");
}

TEST_F(RelayTest, DestroyingARelayedMessageFreesNothing) {
    knowPeer();
    auto relayed = std::make_unique<RelayMessage>(&endpoint);
    relayed->Allocate(300, 4, nullptr);
    endpoint.Relay(*relayed, "Peer");
    platform.takeCalls();
    relayed.reset();
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(RelayTest, TheNumberMayBeChangedBeforeRelaying) {
    knowPeer();
    message.SetType(400);
    endpoint.Relay(message, "Peer");
    EXPECT_EQ(platform.sent.at(0).number, 400u);
    EXPECT_EQ(message.MsgType(), 300u);
}

TEST_F(RelayTest, AnUnknownDestinationIsHuntedOnceAndRemembered) {
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.Relay(message, "Peer"), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "linx_sender(s2)", "linx_free_buf(s2)", "linx_send(s1, 7)"));
    message.Allocate(301, 0, nullptr);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Relay(message, "Peer"), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_send(s3, 7)"));
}

TEST_F(RelayTest, AnAbsentDestinationIsRefusedAndTheMessageKeepsItsSignal) {
    EXPECT_EQ(endpoint.Relay(message, "Absent"), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Absent", "linx_hunt(\"Absent\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "log 2 linxIpc:973 LinxIpc::ResolveDestination: unresolved",
                            "log 2 linxIpc:1152 LinxIpc::Notify: cannot resolve destination Absent"));
    EXPECT_EQ(platform.describe(message.Sig()), "300 'abcd'");

    EXPECT_EQ(endpoint.Relay(message, "Absent"), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:1160 Relay Illegal Spid"));
    EXPECT_EQ(platform.describe(message.Sig()), "300 'abcd'");
}

TEST_F(RelayTest, ASpidOfZeroFromAHuntIsUsedAsItIs) {
    platform.answerHunts("Odd", {0});
    EXPECT_EQ(endpoint.Relay(message, "Odd"), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_send(s1, 0)");
}

TEST_F(RelayTest, AFailedSendIsLoggedForgetsTheDestinationAndReturnsZero) {
    knowPeer();
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Relay(message, "Peer"), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_send(s1, 7)", "log 4 linxIpc:1169 LinxIpc::Notify: send failed: error 104"));
    EXPECT_EQ(message.Sig(), nullptr);
    EXPECT_EQ(message.DataPtr(), nullptr);

    message.Allocate(301, 0, nullptr);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Relay(message, "Peer"), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "linx_sender(s4)", "linx_free_buf(s4)", "linx_send(s3, 7)"));
}

TEST_F(RelayTest, AMessageWithoutASignalIsHandedToLinxAsItIs) {
    knowPeer();
    message.Deallocate();
    EXPECT_EQ(endpoint.Relay(message, "Peer"), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_send(null, 7)", "log 4 linxIpc:1169 LinxIpc::Notify: send failed: error 22"));
}

TEST_F(RelayTest, ARelayHandlerPassesTheReceivedSignalOn) {
    knowPeer();
    platform.setName(8, "First");
    endpoint.RegisterRelayHandler(
        300,
        [](LinxIpc* called, void*) {
            RecordingPlatform::instance().note("from " + called->relayMessage.GetSender());
            called->relayMessage.SetType(400);
            called->relayMessage.DataPtr()[0] = 'X';
            called->Relay(called->relayMessage, "Peer");
        },
        nullptr);
    platform.arrive(8, 300, "abcd");
    platform.arrive(8, 300, "efgh");
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_get_name(8)",
                            "linx_free_name(\"First\")", "from First", "linx_send(s3, 7)",
                            "linx_receive({0, 0, 0, 0})", "linx_sender(s4)", "from First", "linx_send(s4, 7)"));
    EXPECT_EQ(platform.sent.at(0).number, 400u);
    EXPECT_EQ(platform.sent.at(0).payload, "Xbcd");
    EXPECT_EQ(platform.sent.at(1).payload, "Xfgh");
    EXPECT_EQ(platform.signalsAllocated, 1u) << "nothing was copied: the one is the fixture's";
}

}  // namespace
