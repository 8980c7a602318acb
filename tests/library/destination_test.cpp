#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "fixture.h"

namespace {

class DestinationTest : public EndpointTest {
protected:
    /// The spid that a message to `name` is sent to without a hunt; 0 when there is none.
    LinxSpid cachedSpid(const std::string& name) {
        platform.takeCalls();
        platform.sent.clear();
        IpcMessage message;
        const unsigned level = std::exchange(platform.level, 0);
        endpoint.Notify(name, message, false);
        platform.level = level;
        const std::vector<std::string> calls = platform.takeCalls();
        const bool atOnce = !calls.empty() && calls.front().rfind("linx_alloc", 0) == 0;
        return atOnce ? platform.sent.front().to : 0;
    }

    const std::string calling = "log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = ";
};

TEST_F(DestinationTest, WithoutInitItIsRefusedAndAlwaysLogged) {
    EXPECT_EQ(unopened.ResolveDestination("Peer", true), -1);
    EXPECT_EQ(unopened.ResolveDestination("Peer", false), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:917 LinxIpc::Attach use of un-initialized object",
                                                  "log 2 linxIpc:917 LinxIpc::Attach use of un-initialized object"));
}

TEST_F(DestinationTest, AnAnsweredHuntIsRemembered) {
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "linx_sender(s1)", "linx_free_buf(s1)"));
    EXPECT_EQ(cachedSpid("Peer"), 7u);
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
}

TEST_F(DestinationTest, AnAnsweredHuntNamesTheSender) {
    platform.answerHunts("Peer", {7});
    endpoint.ResolveDestination("Peer", true);
    platform.takeCalls();
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s2)", "linx_free_buf(s2)"));
    EXPECT_EQ(described(endpoint.rxMessage), "300 from Peer ''");
}

TEST_F(DestinationTest, AnAnsweredHuntKeepsTheNameThatASpidHas) {
    platform.setName(7, "Peer");
    platform.answerHunts("Alias", {7});
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_EQ(endpoint.ResolveDestination("Alias", true), 0);
    platform.arrive(7, 301);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_EQ(described(endpoint.rxMessage), "301 from Peer ''");
    EXPECT_EQ(cachedSpid("Alias"), 7u);
    EXPECT_EQ(cachedSpid("Peer"), 7u);
}

TEST_F(DestinationTest, NamesThatDifferInOneLetterAreTwoDestinationsAndTwoSenders) {
    LinxSpid spid = 10;
    for (std::size_t length = 1; length <= 20; ++length) {
        const std::string name(length, 'a');
        platform.answerHunts(name, {++spid});
        ASSERT_EQ(endpoint.ResolveDestination(name, true), 0);
        const LinxSpid first = spid;
        for (std::size_t place = 0; place < length; ++place) {
            std::string other = name;
            other[place] = 'b';
            platform.answerHunts(other, {++spid});
            ASSERT_EQ(endpoint.ResolveDestination(other, true), 0);
            EXPECT_EQ(cachedSpid(name), first) << name;
            EXPECT_EQ(cachedSpid(other), spid) << other;
            for (const auto& [sender, text] : {std::pair{first, name}, {spid, other}}) {
                platform.arrive(sender, 300);
                endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
                EXPECT_EQ(endpoint.rxMessage.GetSender(), text);
            }
        }
    }
}

TEST_F(DestinationTest, AnUnansweredHuntIsRememberedAndNotRepeated) {
    EXPECT_EQ(endpoint.ResolveDestination("Absent", true), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Absent", "linx_hunt(\"Absent\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "log 2 linxIpc:973 LinxIpc::ResolveDestination: unresolved"));
    platform.answerHunts("Absent", {7});
    EXPECT_EQ(endpoint.ResolveDestination("Absent", true), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:935 LinxIpc::ResolveDestination: unresolved"));
}

TEST_F(DestinationTest, AnUnansweredHuntIsRememberedEvenWithoutErrorLines) {
    EXPECT_EQ(endpoint.ResolveDestination("Absent", false), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Absent", "linx_hunt(\"Absent\", null)", "linx_receive_w_tmo(100, {1, 251})"));
    EXPECT_EQ(endpoint.ResolveDestination("Absent", false), -1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(DestinationTest, AKnownNameIsHuntedAgainButKeepsItsSpid) {
    platform.answerHunts("Peer", {7, 17});
    endpoint.ResolveDestination("Peer", true);
    platform.takeCalls();
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "linx_sender(s2)", "linx_free_buf(s2)"));
    EXPECT_EQ(cachedSpid("Peer"), 7u);
}

TEST_F(DestinationTest, AKnownNameWhoseHuntIsNotAnsweredKeepsItsSpid) {
    platform.answerHunts("Peer", {7});
    endpoint.ResolveDestination("Peer", true);
    platform.answerHunts("Peer", {});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), -1);
    EXPECT_EQ(cachedSpid("Peer"), 7u);
}

TEST_F(DestinationTest, AFailedHuntIsLoggedAndNotRemembered) {
    platform.answerHunts("Peer", {7});
    platform.fail("linx_hunt", {ENOSPC, ENOSPC});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)",
                                                  "log 2 linxIpc:946 LinxIpc::ResolveDestination: error 28"));
    EXPECT_EQ(endpoint.ResolveDestination("Peer", false), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)"));
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
}

TEST_F(DestinationTest, AFailedReceiveIsLoggedAndNotRemembered) {
    platform.fail("linx_receive_w_tmo", {EINVAL, EINVAL});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "log 2 linxIpc:955 LinxIpc::ResolveDestination: error 22"));
    EXPECT_EQ(endpoint.ResolveDestination("Peer", false), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(calling + "Peer", "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})"));
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
}

TEST_F(DestinationTest, TheFirstHuntSignalInTheQueueIsTakenAsTheAnswer) {
    platform.arrive(99, 251);
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
    EXPECT_EQ(cachedSpid("Peer"), 99u);
    EXPECT_EQ(endpoint.ResolveDestination("Next", true), 0) << "the answer for Peer is still queued";
    EXPECT_EQ(cachedSpid("Next"), 7u);
}

TEST_F(DestinationTest, OtherSignalsStayQueuedWhileHunting) {
    platform.arrive(8, 300, "abcd");
    platform.arrive(8, 1280);
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
    EXPECT_EQ(endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(described(endpoint.rxMessage), "300 from unknown 'abcd'");
}

TEST_F(DestinationTest, ALateAnswerEndsUpInReceive) {
    endpoint.ResolveDestination("Late", true);
    platform.setName(7, "Late");
    platform.arrive(7, 251);
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(described(endpoint.rxMessage), "251 from Late ''");
    EXPECT_EQ(cachedSpid("Late"), 7u) << "naming the sender of the answer has made the name known";
}

TEST_F(DestinationTest, AnAbsentDestinationStaysAbsentUntilASignalFromItIsReceived) {
    platform.setName(7, "Late");
    EXPECT_EQ(endpoint.ResolveDestination("Late", false), -1);
    platform.answerHunts("Late", {7});
    platform.arrive(7, 300);
    EXPECT_EQ(cachedSpid("Late"), 0u) << "what is queued has not been received";
    EXPECT_EQ(endpoint.Attach("Late", 500), -1);
    EXPECT_EQ(endpoint.Relay(endpoint.relayMessage, "Late"), -1);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_EQ(cachedSpid("Late"), 7u);
}

TEST_F(DestinationTest, TheNamePassedMayBeEmpty) {
    platform.answerHunts("", {7});
    EXPECT_EQ(endpoint.ResolveDestination("", true), 0);
    EXPECT_EQ(cachedSpid(""), 7u);
}

class MessageOriginatorTest : public DestinationTest {
protected:
    int notHunted = 77;
};

TEST_F(MessageOriginatorTest, BeforeAnyMessageTheOriginatorIsTheEmptyName) {
    EXPECT_EQ(endpoint.MessageOriginator(notHunted), "");
    EXPECT_EQ(notHunted, 1);
    EXPECT_EQ(&endpoint.MessageOriginator(notHunted), &endpoint.rxMessage.GetSender());
}

TEST_F(MessageOriginatorTest, BeforeAnyMessageTheEmptyNameMayBeAKnownOne) {
    endpoint.ResolveDestination("", true);
    EXPECT_EQ(endpoint.MessageOriginator(notHunted), "");
    EXPECT_EQ(notHunted, 0);
}

TEST_F(MessageOriginatorTest, AKnownSenderIsReturnedFromTheCache) {
    platform.setName(7, "Peer");
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    const std::string& originator = endpoint.MessageOriginator(notHunted);
    EXPECT_EQ(originator, "Peer");
    EXPECT_EQ(notHunted, 0);
    EXPECT_NE(&originator, &endpoint.rxMessage.GetSender());
    endpoint.rxMessage.SetSender("changed");
    EXPECT_EQ(originator, "Peer");
}

TEST_F(MessageOriginatorTest, ASenderRememberedAsAbsentCountsAsHunted) {
    endpoint.ResolveDestination("Absent", true);
    endpoint.rxMessage.SetSender("Absent");
    EXPECT_EQ(endpoint.MessageOriginator(notHunted), "Absent");
    EXPECT_EQ(notHunted, 0);
}

TEST_F(MessageOriginatorTest, AnUnknownSenderIsReturnedFromTheMessage) {
    endpoint.rxMessage.SetSender("Stranger");
    const std::string& originator = endpoint.MessageOriginator(notHunted);
    EXPECT_EQ(originator, "Stranger");
    EXPECT_EQ(notHunted, 1);
    EXPECT_EQ(&originator, &endpoint.rxMessage.GetSender());
}

TEST_F(MessageOriginatorTest, ItIsOnlyAboutTheEndpointsOwnMessage) {
    IpcMessage message;
    platform.setName(7, "Peer");
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, &message);
    EXPECT_EQ(endpoint.MessageOriginator(notHunted), "");
    EXPECT_EQ(notHunted, 1);
}

TEST_F(MessageOriginatorTest, ItAsksNothingOfThePlatform) {
    unopened.MessageOriginator(notHunted);
    EXPECT_EQ(notHunted, 1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

}  // namespace
