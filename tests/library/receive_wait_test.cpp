// Receives that wait on after a signal, or whose wait a death ends.

#include <cerrno>
#include <string>

#include "receive_fixture.h"

namespace {

// Process-died notices

TEST_F(ReceiveTest, ANoticeAboutAnotherProcessIsDispatchedAndTheWaitGoesOn) {
    meetPeers();
    endpoint.RegisterProcessDied(noteMessage, named("died"));
    platform.timesLeft = {320, 300};
    platform.arrive(7, 1281, word(3));
    platform.arrive(8, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})",
                            "linx_sender(s3)", "died: 1281 from Peer '" + word(3) + "'", "ReCalcTimeout(1001)",
                            "linx_free_buf(s3)", "log 16 linxIpc:813 Receive: Process died 3 - ConfigMgr",
                            "CalcInitialTimeout(320) = 1002", "linx_receive_w_tmo(320, {0, 0, 0, 0})",
                            "linx_sender(s4)", "ReCalcTimeout(1002)", "linx_free_buf(s4)"));
    EXPECT_EQ(described(endpoint.rxMessage), "300 from Other 'abcd'");
}

TEST_F(ReceiveTest, ANoticeWithoutAHandlerGoesToTheDefaultHandler) {
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 1281, word(3));
    EXPECT_EQ(endpoint.Receive(10, 0, nobody, nullptr), 110);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("default: 1281 from Peer '" + word(3) + "'"));
}

TEST_F(ReceiveTest, TheRemainingTimeShrinksOverAllTurns) {
    meetPeers();
    platform.timesLeft = {400, 150, 0};
    for (int i = 0; i < 3; ++i) platform.arrive(7, 13264);
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 110);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})", "linx_sender(s3)",
                    "ReCalcTimeout(1001)", "linx_free_buf(s3)", "CalcInitialTimeout(400) = 1002",
                    "linx_receive_w_tmo(400, {0, 0, 0, 0})", "linx_sender(s4)", "ReCalcTimeout(1002)",
                    "linx_free_buf(s4)", "CalcInitialTimeout(150) = 1003", "linx_receive_w_tmo(150, {0, 0, 0, 0})",
                    "linx_sender(s5)", "ReCalcTimeout(1003)", "linx_free_buf(s5)", "CalcInitialTimeout(0) = 1004",
                    "linx_receive_w_tmo(0, {0, 0, 0, 0})"));
}

TEST_F(ReceiveTest, ATimedCallStaysTimedWhateverTheTimeLeft) {
    meetPeers();
    platform.timesLeft = {-1};
    platform.arrive(7, 13264);
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 110);
    const std::vector<std::string> calls = platform.takeCalls();
    EXPECT_EQ(calls.at(calls.size() - 2), "CalcInitialTimeout(-1) = 1002");
    EXPECT_EQ(calls.back(), "linx_receive_w_tmo(4294967295, {0, 0, 0, 0})");
}

TEST_F(ReceiveTest, ATimedCallIsRecalculatedWhateverTheTimeLeft) {
    meetPeers();
    platform.timesLeft = {-1, 5};
    platform.arrive(7, 13264);
    platform.arrive(7, 13264);
    EXPECT_EQ(endpoint.Receive(500, 0, nobody, nullptr), 110);
    EXPECT_EQ(platform.takeCalls().back(), "linx_receive_w_tmo(5, {0, 0, 0, 0})");
}

TEST_F(ReceiveTest, TheDeathOfTheAwaitedPeerEndsTheCallWith113) {
    meetPeers();
    endpoint.RegisterProcessDied(noteMessage, named("died"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 1281, word(3));
    EXPECT_EQ(endpoint.Receive(500, 300, "ConfigMgr", &message), 113);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {3, 1280, 1281, 300})",
                            "linx_sender(s3)", "ReCalcTimeout(1001)", "linx_free_buf(s3)",
                            "log 16 linxIpc:813 Receive: Process died 3 - ConfigMgr",
                            "log 2 linxIpc:817 Receive: host unreachable"));
    EXPECT_EQ(described(message), "1281 from Peer '" + word(3) + "'");
}

TEST_F(ReceiveTest, TheDeathOfTheAwaitedPeerAlsoEndsADispatchingCall) {
    meetPeers();
    endpoint.RegisterProcessDied(noteMessage, named("died"));
    platform.arrive(7, 1281, word(30));
    EXPECT_EQ(endpoint.Receive(-1, 0, "toVp0/EncodeCtrl", nullptr), 113);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)",
                                                  "died: 1281 from Peer '" + word(30) + "'", "linx_free_buf(s3)",
                                                  "log 16 linxIpc:813 Receive: Process died 30 - toVp0/EncodeCtrl",
                                                  "log 2 linxIpc:817 Receive: host unreachable"));
}

TEST_F(ReceiveTest, ANoticeAboutAnotherProcessIsNotDispatchedWhileATypeIsAwaited) {
    meetPeers();
    endpoint.RegisterProcessDied(noteMessage, named("died"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    platform.arrive(7, 1281, word(2));
    platform.arrive(8, 300, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 300, "ConfigMgr", &message), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)", "linx_free_buf(s3)",
                            "log 16 linxIpc:813 Receive: Process died 2 - StateMgr",
                            "linx_receive({3, 1280, 1281, 300})", "linx_sender(s4)", "linx_free_buf(s4)"));
    EXPECT_EQ(described(message), "300 from Other 'abcd'");
}

TEST_F(ReceiveTest, ANoticeDoesNotEndTheWaitEvenWhenItsTypeIsAwaited) {
    platform.arrive(7, 1281, word(2));
    EXPECT_EQ(endpoint.Receive(10, 1281, nobody, &message), 110);
    EXPECT_EQ(message.MsgType(), 1281u);
}

class AwaitedNameTest : public ReceiveTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(AwaitedNameTest, HasToBeEqualInEveryByte) {
    platform.arrive(7, 1281, word(3));
    EXPECT_EQ(endpoint.Receive(10, 0, GetParam(), nullptr), 110);
}

INSTANTIATE_TEST_SUITE_P(Receive, AwaitedNameTest,
                         ::testing::Values("", "ConfigMg", "ConfigMgr ", "configmgr", "ConfigMgs",
                                           "UndefinedServer"));

TEST_F(ReceiveTest, ANameWithAZeroByteIsAnotherName) {
    platform.arrive(7, 1281, word(3));
    EXPECT_EQ(endpoint.Receive(10, 0, std::string("ConfigMgr\0", 10), nullptr), 110);
}

TEST_F(ReceiveTest, ANoticeAboutAnUnknownProcessIsAboutTheUndefinedServer) {
    meetPeers();
    platform.arrive(7, 1281, word(-5));
    EXPECT_EQ(endpoint.Receive(-1, 300, "UndefinedServer", nullptr), 113);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({3, 1280, 1281, 300})", "linx_sender(s3)", "linx_free_buf(s3)",
                            "log 1 LinxServerNameList:128 LinxServerNameList::Name - ServerName not found for -5,"
                            "    size = 37",
                            "log 16 linxIpc:813 Receive: Process died -5 - UndefinedServer",
                            "log 2 linxIpc:817 Receive: host unreachable"));
}

class ShortNoticeTest : public ReceiveTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(ShortNoticeTest, CountsAsOneAboutProcessZero) {
    meetPeers();
    platform.arrive(7, 1281, std::string(GetParam(), '\1'));
    EXPECT_EQ(endpoint.Receive(-1, 300, "UndefinedServer", nullptr), 113);
    EXPECT_THAT(platform.takeCalls(),
                ::testing::Contains("log 16 linxIpc:813 Receive: Process died 0 - UndefinedServer"));
}

INSTANTIATE_TEST_SUITE_P(Receive, ShortNoticeTest, ::testing::Values(0u, 1u, 2u, 3u));

TEST_F(ReceiveTest, ALongerNoticeBeginsWithTheProcess) {
    platform.arrive(7, 1281, word(3) + "more");
    EXPECT_EQ(endpoint.Receive(-1, 300, "ConfigMgr", nullptr), 113);
}

TEST_F(ReceiveTest, ANoticeThatCannotBeCopiedStillCounts) {
    platform.arrive(7, 1281, word(3));
    interposed::refusesArrays = true;
    EXPECT_EQ(endpoint.Receive(-1, 300, "ConfigMgr", &message), 113);
}

TEST_F(ReceiveTest, AHandlerThatOverwritesTheMessageDoesNotChangeWhoDied) {
    endpoint.RegisterProcessDied([](LinxIpc* called, void*) { called->rxMessage.Allocate(300, 4, word(2).data()); },
                                 nullptr);
    platform.arrive(7, 1281, word(3));
    EXPECT_EQ(endpoint.Receive(-1, 0, "ConfigMgr", nullptr), 113);
}

// The signal after which the wait goes on

TEST_F(ReceiveTest, ASignal13264IsDispatchedAndTheWaitGoesOn) {
    meetPeers();
    endpoint.RegisterHandler(13264, noteMessage, named("handler"));
    platform.arrive(7, 13264, "abcd");
    platform.arrive(7, 300, "next");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "handler: 13264 from Peer 'abcd'",
                    "linx_free_buf(s3)", "linx_receive({0, 0, 0, 0})", "linx_sender(s4)", "linx_free_buf(s4)"));
}

TEST_F(ReceiveTest, AnAwaited13264IsNotDispatchedAndDoesNotEndTheWait) {
    endpoint.RegisterHandler(13264, noteMessage, named("handler"));
    platform.arrive(7, 13264, "abcd");
    EXPECT_EQ(endpoint.Receive(10, 13264, nobody, &message), 110);
    EXPECT_THAT(platform.takeCalls(), ::testing::Not(::testing::Contains(::testing::HasSubstr("handler:"))));
    EXPECT_EQ(described(message), "13264 from Peer 'abcd'");
}

TEST_F(ReceiveTest, ARelayed13264EndsTheCallWithZero) {
    meetPeers();
    endpoint.RegisterRelayHandler(13264, noteRelay, named("relay"));
    platform.arrive(7, 13264, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, &message), 0);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("relay: 13264 from Peer 'abcd'"));
    EXPECT_EQ(described(message), "0 from Peer ''");
}

TEST_F(ReceiveTest, ARelayedSignalEndsWithZeroEvenAWaitThatHasGoneOn) {
    meetPeers();
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    platform.arrive(7, 13264, std::string(65533, 'x'));
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
}

TEST_F(ReceiveTest, AFailureInALaterTurnIsReturned) {
    meetPeers();
    platform.arrive(7, 13264);
    platform.fail("linx_receive", {0, EINVAL});
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 22);
}

}  // namespace
