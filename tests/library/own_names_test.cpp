// Names that callers pass by reference may be those in the endpoint's own tables, which a call may remove or change.
#include <cerrno>
#include <string>

#include "fixture.h"

namespace {

class OwnNamesTest : public EndpointTest {
protected:
    OwnNamesTest() {
        platform.level = 0;
        platform.Knows(7, "toVp0/tsAppReceiver");
        platform.Answers("toVp0/tsAppReceiver", {17});
        platform.Arrive(7, 300);
        endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        platform.Calls();
    }

    /// The sender's name, by reference to the cache of hunted names.
    const std::string& Originator() {
        int notHunted = 1;
        const std::string& name = endpoint.MessageOriginator(notHunted);
        EXPECT_EQ(notHunted, 0);
        return name;
    }

    IpcMessage message;
};

TEST_F(OwnNamesTest, NotifyAcceptsANameThatItsFailedSendsRemove) {
    platform.level = 0xFFFFFFFF;
    platform.Fail("linx_send", {ECONNRESET, ECONNRESET, ECONNRESET});
    EXPECT_EQ(endpoint.Notify(Originator(), message, true), 0);
    EXPECT_EQ(platform.Calls().back(), "log 16 linxIpc:500 Notify: send successful after 3 retries");
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(OwnNamesTest, NotifyAcceptsANameThatIsAbsentAfterwards) {
    platform.level = 0xFFFFFFFF;
    platform.Answers("toVp0/tsAppReceiver", {});
    platform.Fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Notify(Originator(), message, true), -1);
    EXPECT_EQ(platform.Calls().back(), "log 2 linxIpc:438 Notify: cannot resolve destination toVp0/tsAppReceiver");
}

TEST_F(OwnNamesTest, NotifyMayGiveUpOnANameOfTheEndpointsOwn) {
    platform.FailAlways("linx_send", ECONNRESET);
    EXPECT_EQ(endpoint.Notify(Originator(), message, true), 0);
    EXPECT_EQ(platform.sent.size(), 32u);
}

TEST_F(OwnNamesTest, RelayAcceptsANameThatItsFailedSendRemoves) {
    endpoint.relayMessage.Allocate(300, 0, nullptr);
    platform.Fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Relay(endpoint.relayMessage, Originator()), 0);
    platform.Calls();
    endpoint.Notify("toVp0/tsAppReceiver", message, true);
    EXPECT_EQ(platform.Calls().front(), "linx_hunt(\"toVp0/tsAppReceiver\", null)");
}

TEST_F(OwnNamesTest, RequestAwaitsAPeerWhoseNameTheSendRemoved) {
    platform.Fail("linx_send", {ECONNRESET});
    platform.Arrive(7, 1281, Word(36));
    EXPECT_EQ(endpoint.Request(Originator(), message, 400, -1, nullptr), 113);
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(OwnNamesTest, RequestAwaitsThePeerWhoseNameTheReceivedMessageHeld) {
    platform.Knows(8, "WatchdogMgr");
    platform.Arrive(8, 1281, Word(36));
    EXPECT_EQ(endpoint.Request(endpoint.rxMessage.GetSender(), message, 400, -1, nullptr), 113)
        << "the notice has put its own sender into the message";
}

TEST_F(OwnNamesTest, RequestLogsAndSurvivesAnAbsentPeer) {
    platform.Answers("toVp0/tsAppReceiver", {});
    platform.Fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Request(Originator(), message, 400, -1, nullptr), -1);
}

TEST_F(OwnNamesTest, AsyncRequestAcceptsANameThatTheSendRemoves) {
    platform.Fail("linx_send", {ECONNRESET});
    platform.Arrive(7, 400);
    EXPECT_EQ(endpoint.AsyncRequest(Originator(), message, 400, -1, nullptr), 0);
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(OwnNamesTest, ReceiveAwaitsAPeerWhoseNameAHandlerRemoved) {
    endpoint.RegisterHandler(
        13264,
        [](LinxIpc* called, void*) {
            IpcMessage lost;
            called->Notify("toVp0/tsAppReceiver", lost, false);
        },
        nullptr);
    platform.Fail("linx_send", {ECONNRESET});
    platform.Arrive(7, 13264);
    platform.Arrive(7, 1281, Word(36));
    EXPECT_EQ(endpoint.Receive(-1, 0, Originator(), nullptr), 113);
}

TEST_F(OwnNamesTest, ReceiveAwaitsThePeerWhoseNameItsMessageHeld) {
    platform.Knows(8, "WatchdogMgr");
    platform.Arrive(8, 1281, Word(36));
    EXPECT_EQ(endpoint.Receive(-1, 0, endpoint.rxMessage.GetSender(), nullptr), 113);
}

TEST_F(OwnNamesTest, ReceiveAwaitsNobodyEvenIfItsEmptyNameBecomesThatOfTheDead) {
    platform.Knows(8, "WatchdogMgr");
    platform.Arrive(8, 1281, Word(18));
    IpcMessage fresh;
    EXPECT_EQ(endpoint.Receive(10, 0, fresh.GetSender(), &fresh), 110);
    EXPECT_EQ(fresh.GetSender(), "WatchdogMgr");
}

TEST_F(OwnNamesTest, AttachAcceptsTheCharactersOfANameOfTheEndpointsOwn) {
    EXPECT_EQ(endpoint.Attach(Originator().c_str(), 500), 0);
    EXPECT_THAT(platform.Calls(), ElementsAre("linx_alloc(4, 500) = s2", "linx_attach(s2, 7)"));
}

TEST_F(OwnNamesTest, ResolveDestinationAcceptsANameOfTheEndpointsOwn) {
    EXPECT_EQ(endpoint.ResolveDestination(Originator(), true), 0);
    EXPECT_EQ(endpoint.Notify("toVp0/tsAppReceiver", message, true), 0);
    EXPECT_EQ(platform.sent.back().to, 7u);
}

TEST_F(OwnNamesTest, CommonInitAcceptsANameOfTheEndpointsOwn) {
    endpoint.CommonInit(Originator());
    endpoint.Init();
    EXPECT_EQ(platform.Calls().front(), "linx_open(\"toVp0/tsAppReceiver\", 0, null)");
}

}  // namespace
