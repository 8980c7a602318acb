#include <cerrno>
#include <string>

#include "receive_fixture.h"

namespace {

// Receiving one signal

TEST_F(ReceiveTest, WithoutInitItIsRefused) {
    EXPECT_EQ(unopened.Receive(0, 0, nobody, nullptr), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:653 Receive: use of un-initialized object"));
}

TEST_F(ReceiveTest, AnUntimedReceiveNamesCopiesDispatchesAndFreesAnySignal) {
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s1)", "linx_get_name(7)",
                            "linx_free_name(\"Peer\")", "handler: 300 from Peer 'abcd'", "linx_free_buf(s1)"));
    EXPECT_EQ(platform.namesInHand(), 0u);
    EXPECT_EQ(described(endpoint.rxMessage), "300 from Peer 'abcd'");
}

TEST_F(ReceiveTest, ATimedReceiveTakesAStampAndRecalculatesBeforeTheSignalIsFreed) {
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})",
                            "linx_sender(s1)", "linx_get_name(7)", "linx_free_name(\"Peer\")",
                            "handler: 300 from Peer 'abcd'", "ReCalcTimeout(1001)", "linx_free_buf(s1)"));
}

/// Leaves something other than zeros on the stack where the next call has its frame.
[[gnu::noinline]] void soilTheStack() {
    volatile char soil[4096];
    for (volatile char& byte : soil) byte = '\xA5';
}

TEST_F(ReceiveTest, AnySignalIsSelectedByFourZeros) {
    for (const int timeout : {-1, 0}) {
        platform.arrive(7, 300);
        soilTheStack();
        endpoint.Receive(timeout, 0, nobody, nullptr);
    }
    EXPECT_THAT(platform.takeCalls(),
                ::testing::IsSupersetOf({"linx_receive({0, 0, 0, 0})", "linx_receive_w_tmo(0, {0, 0, 0, 0})"}));
}

TEST_F(ReceiveTest, AnAwaitedTypeIsSelectedTogetherWithShutdownAndProcessDied) {
    meetPeers();
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 301, "left");
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 300, "Peer", &message), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s4)", "linx_free_buf(s4)"));
    EXPECT_EQ(described(message), "300 from Peer 'abcd'");
    EXPECT_EQ(described(endpoint.rxMessage), "1 from Other ''") << "the endpoint's own message is left alone";
}

TEST_F(ReceiveTest, AnAwaitedTypeIsSelectedInATimedReceiveToo) {
    meetPeers();
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(250, 300, "Peer", nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(250) = 1001", "linx_receive_w_tmo(250, {3, 1280, 1281, 300})",
                            "linx_sender(s3)", "ReCalcTimeout(1001)", "linx_free_buf(s3)"));
    EXPECT_EQ(described(endpoint.rxMessage), "300 from Peer 'abcd'");
}

TEST_F(ReceiveTest, TheAwaitedPeerDoesNotHaveToBeTheSender) {
    platform.arrive(8, 300);
    EXPECT_EQ(endpoint.Receive(-1, 300, "Peer", &message), 0);
    EXPECT_EQ(described(message), "300 from Other ''");
}

TEST_F(ReceiveTest, AQuietTimeOutReturns110WithoutALogLine) {
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 110);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})"));
}

TEST_F(ReceiveTest, TimeOutZeroIsATimedReceive) {
    EXPECT_EQ(endpoint.Receive(0, 0, nobody, nullptr), 110);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(0) = 1001", "linx_receive_w_tmo(0, {0, 0, 0, 0})"));
}

TEST_F(ReceiveTest, TimeOutZeroIsRecalculatedLikeAnyOther) {
    meetPeers();
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(0, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(0) = 1001", "linx_receive_w_tmo(0, {0, 0, 0, 0})", "linx_sender(s3)",
                            "ReCalcTimeout(1001)", "linx_free_buf(s3)"));
}

TEST_F(ReceiveTest, AnyNegativeTimeOutMeansNoLimit) {
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(-2147483647 - 1, 0, nobody, nullptr), 0);
    EXPECT_EQ(platform.takeCalls().front(), "linx_receive({0, 0, 0, 0})");
}

TEST_F(ReceiveTest, AFailedReceiveIsLoggedAndReturned) {
    platform.fail("linx_receive", {EINVAL});
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 22);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "log 2 linxIpc:700 Receive: error 22"));
}

TEST_F(ReceiveTest, AFailedTimedReceiveIsLoggedAndReturned) {
    platform.fail("linx_receive_w_tmo", {ECHILD});
    EXPECT_EQ(endpoint.Receive(10, 0, nobody, nullptr), 10);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(10) = 1001", "linx_receive_w_tmo(10, {0, 0, 0, 0})",
                            "log 2 linxIpc:700 Receive: error 10"));
}

TEST_F(ReceiveTest, ASignalWithoutPayloadGivesAnEmptyMessage) {
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, &message), 0);
    EXPECT_EQ(described(message), "300 from Peer ''");
    EXPECT_EQ(message.DataPtr(), nullptr);
}

TEST_F(ReceiveTest, TheBufferOfTheMessageIsReused) {
    platform.arrive(7, 300, "long payload");
    platform.arrive(7, 301, "short");
    endpoint.Receive(-1, 0, nobody, nullptr);
    char* const buffer = endpoint.rxMessage.DataPtr();
    endpoint.Receive(-1, 0, nobody, nullptr);
    EXPECT_EQ(endpoint.rxMessage.DataPtr(), buffer);
    EXPECT_EQ(described(endpoint.rxMessage), "301 from Peer 'short'");
}

TEST_F(ReceiveTest, AMessageThatIsTooLongIsLoggedDispatchedAndFreed) {
    meetPeers();
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    platform.arrive(7, 300, std::string(65533, 'x'));
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 90);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)",
                                                  "log 2 linxIpc:770 Receive: error allocating message: 90",
                                                  "handler: 300 from Peer ''", "linx_free_buf(s3)"));
}

TEST_F(ReceiveTest, TheLongestMessageIsTaken) {
    platform.arrive(7, 300, std::string(65532, 'x'));
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, &message), 0);
    EXPECT_EQ(message.Length(), 65532u);
}

TEST_F(ReceiveTest, RunningOutOfMemoryIsLoggedAndReturned) {
    meetPeers();
    platform.arrive(7, 300, "abcd");
    interposed::refusesArrays = true;
    EXPECT_EQ(endpoint.Receive(-1, 300, nobody, &message), 12);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)",
                            "log 2 linxIpc:770 Receive: error allocating message: 12", "linx_free_buf(s3)"));
}

TEST_F(ReceiveTest, AHandlerSeesTheCallersMessage) {
    platform.arrive(7, 300, "abcd");
    endpoint.RegisterHandler(
        300,
        [](LinxIpc*, void* userData) {
            RecordingPlatform::instance().note(described(*static_cast<IpcMessage*>(userData)));
        },
        &message);
    endpoint.Receive(-1, 0, nobody, &message);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("300 from Peer 'abcd'"));
    EXPECT_EQ(described(endpoint.rxMessage), "0 from  ''");
}

TEST_F(ReceiveTest, AHandlerMayCallReceiveAndRequest) {
    meetPeers();
    endpoint.RegisterHandler(
        300,
        [](LinxIpc* called, void*) {
            IpcMessage request;
            IpcMessage reply;
            called->Request("Peer", request, 400, -1, &reply);
            RecordingPlatform::instance().note("reply: " + described(reply));
        },
        nullptr);
    platform.arrive(7, 300);
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_alloc(4, 0) = s5",
                            "linx_send(s5, 7)", "linx_receive({3, 1280, 1281, 400})", "linx_sender(s4)",
                            "linx_free_buf(s4)", "reply: 400 from Peer 'abcd'", "linx_free_buf(s3)"));
}

TEST_F(ReceiveTest, ARelayMessageOfTheCallerAdoptsThePayload) {
    meetPeers();
    RelayMessage relay(&unopened);
    platform.arrive(7, 300, "abcdefgh");
    EXPECT_EQ(endpoint.Receive(-1, 300, nobody, &relay), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)", "linx_free_buf(s3)"));
    EXPECT_EQ(relay.MsgType(), 300u);
    EXPECT_EQ(relay.Length(), 8u);
    EXPECT_EQ(relay.DataPtr(), reinterpret_cast<char*>(relay.Sig()) + 4);
    relay.Deallocate();
}

// The sender's name

TEST_F(ReceiveTest, LinxIsAskedForANameOncePerSpid) {
    platform.arrive(7, 300);
    platform.arrive(7, 301);
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s2)", "linx_free_buf(s2)"));
    EXPECT_EQ(described(endpoint.rxMessage), "301 from Peer ''");
}

TEST_F(ReceiveTest, ASenderThatLinxCannotNameStaysUnknown) {
    platform.arrive(9, 300);
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s1)", "linx_get_name(9)",
                                                  "linx_free_buf(s1)"));
    EXPECT_EQ(described(endpoint.rxMessage), "300 from unknown ''");

    platform.setName(9, "Known");
    platform.arrive(9, 301);
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s2)", "linx_free_buf(s2)"));
    EXPECT_EQ(described(endpoint.rxMessage), "301 from unknown ''");
}

TEST_F(ReceiveTest, AnUnknownSenderIsNotADestination) {
    platform.arrive(9, 300);
    endpoint.Receive(-1, 0, nobody, nullptr);
    int notHunted = 0;
    EXPECT_EQ(endpoint.MessageOriginator(notHunted), "unknown");
    EXPECT_EQ(notHunted, 1);
}

TEST_F(ReceiveTest, ASenderBecomesAKnownDestination) {
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 0) = s2", "linx_send(s2, 7)"));
}

TEST_F(ReceiveTest, ASenderUnderANewSpidReplacesTheOldOne) {
    meetPeers();
    platform.setName(17, "Peer");
    platform.arrive(17, 300);
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.takeCalls();
    endpoint.Notify("Peer", message, true);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 0) = s4", "linx_send(s4, 17)"));
}

TEST_F(ReceiveTest, AnAbsentDestinationBecomesKnownWhenItSends) {
    endpoint.ResolveDestination("Peer", true);
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 0) = s2", "linx_send(s2, 7)"));
}

TEST_F(ReceiveTest, ASignalFromAKnownSpidDoesNotRestoreItsDestination) {
    meetPeers();
    platform.fail("linx_send", {ECONNRESET});
    endpoint.Notify("Peer", message, false);  // forgets the spid; the hunt is not answered
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Notify("Peer", message, false), -1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

// Hunt signals

TEST_F(ReceiveTest, AHuntSignalEndsTheCallAndIsNotFreed) {
    endpoint.RegisterHandler(251, noteMessage, named("handler"));
    endpoint.RegisterRelayHandler(251, noteRelay, named("relay"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 251, "left out");
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})",
                            "linx_sender(s1)", "linx_get_name(7)", "linx_free_name(\"Peer\")"));
    EXPECT_EQ(described(endpoint.rxMessage), "251 from Peer ''");
    EXPECT_EQ(platform.signalsInHand(), std::set<std::string>{"s1"});
}

TEST_F(ReceiveTest, AnAwaitedHuntSignalIsNotFreedEither) {
    meetPeers();
    platform.arrive(7, 251);
    EXPECT_EQ(endpoint.Receive(-1, 251, nobody, &message), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({3, 1280, 1281, 251})", "linx_sender(s3)"));
    EXPECT_EQ(described(message), "251 from Peer ''");
}

TEST_F(ReceiveTest, AHuntSignalStaysQueuedWhileAnotherTypeIsAwaited) {
    platform.arrive(7, 251);
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 300, nobody, &message), 0);
    EXPECT_EQ(described(message), "300 from Peer 'abcd'");
    EXPECT_EQ(endpoint.Receive(-1, 251, nobody, &message), 0);
    EXPECT_EQ(described(message), "251 from Peer ''");
}

TEST_F(ReceiveTest, AHuntSignalReturnsTheResultOfTheMessagesAllocate) {
    meetPeers();
    RelayMessage relay(&endpoint);
    platform.arrive(7, 251);
    platform.fail("linx_alloc", {ENOMEM});
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, &relay), 1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_alloc(4, 251) = null"));
}

// Relay handlers

TEST_F(ReceiveTest, ARelayHandlerGetsTheSignalItself) {
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 0);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})", "linx_sender(s1)",
                    "linx_get_name(7)", "linx_free_name(\"Peer\")", "relay: 300 from Peer 'abcd'"));
    EXPECT_EQ(platform.describe(endpoint.relayMessage.Sig()), "300 'abcd'");
    EXPECT_EQ(described(endpoint.rxMessage), "0 from Peer ''") << "only the sender is taken over";
}

TEST_F(ReceiveTest, ASignalThatWasNotRelayedIsFreedByTheNextOne) {
    meetPeers();
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    platform.arrive(7, 300, "abcd");
    platform.arrive(8, 300, "efgh");
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.takeCalls();
    endpoint.Receive(-1, 0, nobody, nullptr);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s4)",
                                                  "linx_free_buf(s3)", "relay: 300 from Other 'efgh'"));
}

TEST_F(ReceiveTest, ARelayHandlerRunsEvenForAnAwaitedType) {
    meetPeers();
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 300, nobody, &message), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)", "relay: 300 from Peer 'abcd'"));
    EXPECT_EQ(described(message), "0 from Peer ''");
}

TEST_F(ReceiveTest, ARelayedShutdownRequestEndsTheCallWithZero) {
    meetPeers();
    endpoint.RegisterRelayHandler(1280, noteRelay, named("relay"));
    endpoint.RegisterShutdown(noteMessage, named("shutdown"));
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "relay: 1280 from Peer ''"));
}

TEST_F(ReceiveTest, ARelayedProcessDiedNoticeEndsTheCallWithZero) {
    meetPeers();
    endpoint.RegisterRelayHandler(1281, noteRelay, named("relay"));
    platform.arrive(7, 1281, word(3));
    EXPECT_EQ(endpoint.Receive(-1, 300, "ConfigMgr", nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)",
                                                  "relay: 1281 from Peer '" + word(3) + "'"));
}

// Dispatch

TEST_F(ReceiveTest, TheDefaultHandlerGetsSignalsWithoutAHandler) {
    meetPeers();
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 301, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)",
                                                  "default: 301 from Peer 'abcd'", "linx_free_buf(s3)"));
}

TEST_F(ReceiveTest, WithoutAnyHandlerTheMessageIsOnlyCopied) {
    meetPeers();
    platform.arrive(7, 301, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, &message), 0);
    EXPECT_EQ(described(message), "301 from Peer 'abcd'");
}

// Shutdown requests

TEST_F(ReceiveTest, AShutdownRequestIsDispatchedAndEndsTheCallWith108) {
    meetPeers();
    endpoint.RegisterShutdown(noteMessage, named("shutdown"));
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 108);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})",
                            "linx_sender(s3)", "shutdown: 1280 from Peer ''", "ReCalcTimeout(1001)",
                            "linx_free_buf(s3)", "log 512 linxIpc:802 Receive: Shutdown Requested"));
}

TEST_F(ReceiveTest, AShutdownRequestIsDispatchedWhileAnotherTypeIsAwaited) {
    meetPeers();
    endpoint.RegisterShutdown(noteMessage, named("shutdown"));
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.Receive(-1, 300, "Peer", nullptr), 108);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)", "shutdown: 1280 from Peer ''",
                            "linx_free_buf(s3)", "log 512 linxIpc:802 Receive: Shutdown Requested"));
}

TEST_F(ReceiveTest, AShutdownRequestWithoutAHandlerGoesToTheDefaultHandler) {
    meetPeers();
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.Receive(-1, 300, "Peer", nullptr), 108);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("default: 1280 from Peer ''"));
}

TEST_F(ReceiveTest, AShutdownRequestThatCannotBeCopiedStillReturns108) {
    meetPeers();
    platform.arrive(7, 1280, "abcd");
    interposed::refusesArrays = true;
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, &message), 108);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)",
                            "log 2 linxIpc:770 Receive: error allocating message: 12", "linx_free_buf(s3)",
                            "log 512 linxIpc:802 Receive: Shutdown Requested"));
}

// Nothing is lost

TEST_F(ReceiveTest, EverySignalExceptHuntAndRelayedOnesIsFreedOnce) {
    for (std::uint32_t number : {300u, 1281u, 13264u, 1280u}) platform.arrive(7, number, "abcd");
    endpoint.Receive(-1, 0, nobody, nullptr);
    endpoint.Receive(-1, 0, nobody, nullptr);
    EXPECT_EQ(platform.signalsFreed, 4u);
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
}

}  // namespace
