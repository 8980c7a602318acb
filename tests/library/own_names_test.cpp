// Names that callers pass by reference may be those in the endpoint's own tables, which a call may remove or change.
#include <cerrno>
#include <string>

#include "fixture.h"

namespace {

class OwnNamesTest : public EndpointTest {
protected:
    OwnNamesTest() {
        platform.level = 0;
        platform.setName(7, "toVp0/tsAppReceiver");
        platform.answerHunts("toVp0/tsAppReceiver", {17});
        platform.arrive(7, 300);
        endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        platform.takeCalls();
    }

    /// The sender's name, by reference to the cache of hunted names.
    const std::string& originator() {
        int notHunted = 1;
        const std::string& name = endpoint.MessageOriginator(notHunted);
        EXPECT_EQ(notHunted, 0);
        return name;
    }

    IpcMessage message;
};

TEST_F(OwnNamesTest, NotifyAcceptsANameThatItsFailedSendsRemove) {
    platform.level = 0xFFFFFFFF;
    platform.fail("linx_send", {ECONNRESET, ECONNRESET, ECONNRESET});
    EXPECT_EQ(endpoint.Notify(originator(), message, true), 0);
    EXPECT_EQ(platform.takeCalls().back(), "log 16 linxIpc:500 Notify: send successful after 3 retries");
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(OwnNamesTest, NotifyAcceptsANameThatIsAbsentAfterwards) {
    platform.level = 0xFFFFFFFF;
    platform.answerHunts("toVp0/tsAppReceiver", {});
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Notify(originator(), message, true), -1);
    EXPECT_EQ(platform.takeCalls().back(),
              "log 2 linxIpc:438 Notify: cannot resolve destination toVp0/tsAppReceiver");
}

TEST_F(OwnNamesTest, NotifyMayGiveUpOnANameOfTheEndpointsOwn) {
    platform.failAlways("linx_send", ECONNRESET);
    EXPECT_EQ(endpoint.Notify(originator(), message, true), 0);
    EXPECT_EQ(platform.sent.size(), 32u);
}

TEST_F(OwnNamesTest, RelayAcceptsANameThatItsFailedSendRemoves) {
    endpoint.relayMessage.Allocate(300, 0, nullptr);
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Relay(endpoint.relayMessage, originator()), 0);
    platform.takeCalls();
    endpoint.Notify("toVp0/tsAppReceiver", message, true);
    EXPECT_EQ(platform.takeCalls().front(), "linx_hunt(\"toVp0/tsAppReceiver\", null)");
}

TEST_F(OwnNamesTest, RequestAwaitsAPeerWhoseNameTheSendRemoved) {
    platform.fail("linx_send", {ECONNRESET});
    platform.arrive(7, 1281, word(36));
    EXPECT_EQ(endpoint.Request(originator(), message, 400, -1, nullptr), 113);
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(OwnNamesTest, RequestAwaitsThePeerWhoseNameTheReceivedMessageHeld) {
    platform.setName(8, "WatchdogMgr");
    platform.arrive(8, 1281, word(36));
    EXPECT_EQ(endpoint.Request(endpoint.rxMessage.GetSender(), message, 400, -1, nullptr), 113)
        << "the notice has put its own sender into the message";
}

TEST_F(OwnNamesTest, RequestLogsAndSurvivesAnAbsentPeer) {
    platform.answerHunts("toVp0/tsAppReceiver", {});
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Request(originator(), message, 400, -1, nullptr), -1);
}

TEST_F(OwnNamesTest, AsyncRequestAcceptsANameThatTheSendRemoves) {
    platform.fail("linx_send", {ECONNRESET});
    platform.arrive(7, 400);
    EXPECT_EQ(endpoint.AsyncRequest(originator(), message, 400, -1, nullptr), 0);
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
    platform.fail("linx_send", {ECONNRESET});
    platform.arrive(7, 13264);
    platform.arrive(7, 1281, word(36));
    EXPECT_EQ(endpoint.Receive(-1, 0, originator(), nullptr), 113);
}

TEST_F(OwnNamesTest, ReceiveAwaitsThePeerWhoseNameItsMessageHeld) {
    platform.setName(8, "WatchdogMgr");
    platform.arrive(8, 1281, word(36));
    EXPECT_EQ(endpoint.Receive(-1, 0, endpoint.rxMessage.GetSender(), nullptr), 113);
}

TEST_F(OwnNamesTest, ReceiveAwaitsNobodyEvenIfItsEmptyNameBecomesThatOfTheDead) {
    platform.setName(8, "WatchdogMgr");
    platform.arrive(8, 1281, word(18));
    IpcMessage fresh;
    EXPECT_EQ(endpoint.Receive(10, 0, fresh.GetSender(), &fresh), 110);
    EXPECT_EQ(fresh.GetSender(), "WatchdogMgr");
}

TEST_F(OwnNamesTest, AttachAcceptsTheCharactersOfANameOfTheEndpointsOwn) {
    EXPECT_EQ(endpoint.Attach(originator().c_str(), 500), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s2", "linx_attach(s2, 7)"));
}

TEST_F(OwnNamesTest, ResolveDestinationAcceptsANameOfTheEndpointsOwn) {
    EXPECT_EQ(endpoint.ResolveDestination(originator(), true), 0);
    EXPECT_EQ(endpoint.Notify("toVp0/tsAppReceiver", message, true), 0);
    EXPECT_EQ(platform.sent.back().to, 7u);
}

TEST_F(OwnNamesTest, CommonInitAcceptsANameOfTheEndpointsOwn) {
    endpoint.CommonInit(originator());
    endpoint.Init();
    EXPECT_EQ(platform.takeCalls().front(), "linx_open(\"toVp0/tsAppReceiver\", 0, null)");
}

}  // namespace
