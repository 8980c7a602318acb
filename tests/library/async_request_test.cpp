#include <cerrno>
#include <string>

#include "fixture.h"

namespace {

class AsyncRequestTest : public EndpointTest {
protected:
    AsyncRequestTest() {
        platform.setName(7, "Peer");
        platform.arrive(7, 1);
        endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        platform.takeCalls();
        request.Allocate(300, 0, nullptr);
    }

    const std::string goesBack =
        "log 128 linxIpc:608 LinxIpc::AsyncRequest did not receive message waiting on, will go back and listen";
    IpcMessage request;
    IpcMessage reply;
};

TEST_F(AsyncRequestTest, WithoutInitItIsRefused) {
    EXPECT_EQ(unopened.AsyncRequest("Peer", request, 400, 0, &reply), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 2 linxIpc:577 LinxIpc::AsyncRequest use of un-initialized object"));
}

TEST_F(AsyncRequestTest, TheReplyIsDispatchedAndEndsTheWait) {
    endpoint.RegisterHandler(400, noteMessage, named("handler"));
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 500, nullptr), 0);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAre("linx_alloc(4, 300) = s3", "linx_send(s3, 7)", "CalcInitialTimeout(500) = 1001",
                    "CalcInitialTimeout(500) = 1002", "linx_receive_w_tmo(500, {0, 0, 0, 0})", "linx_sender(s2)",
                    "handler: 400 from Peer 'abcd'", "ReCalcTimeout(1002)", "linx_free_buf(s2)"));
}

TEST_F(AsyncRequestTest, OtherMessagesAreDispatchedUntilTheReplyComes) {
    endpoint.RegisterDefault(
        [](LinxIpc*, void* userData) {
            RecordingPlatform::instance().note("default: " + described(*static_cast<IpcMessage*>(userData)));
        },
        &reply);
    platform.arrive(7, 301, "one");
    platform.arrive(7, 302, "two");
    platform.arrive(7, 400, "abcd");
    platform.timesLeft = {450, 440, 390, 380, 330};
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 500, &reply), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = s5", "linx_send(s5, 7)",  //
                            "CalcInitialTimeout(500) = 1001", "CalcInitialTimeout(500) = 1002",
                            "linx_receive_w_tmo(500, {0, 0, 0, 0})", "linx_sender(s2)",
                            "default: 301 from Peer 'one'", "ReCalcTimeout(1002)", "linx_free_buf(s2)", goesBack,  //
                            "ReCalcTimeout(1001)", "CalcInitialTimeout(440) = 1003", "CalcInitialTimeout(440) = 1004",
                            "linx_receive_w_tmo(440, {0, 0, 0, 0})", "linx_sender(s3)",
                            "default: 302 from Peer 'two'", "ReCalcTimeout(1004)", "linx_free_buf(s3)", goesBack,  //
                            "ReCalcTimeout(1003)", "CalcInitialTimeout(380) = 1005", "CalcInitialTimeout(380) = 1006",
                            "linx_receive_w_tmo(380, {0, 0, 0, 0})", "linx_sender(s4)",
                            "default: 400 from Peer 'abcd'", "ReCalcTimeout(1006)", "linx_free_buf(s4)"));
    EXPECT_EQ(described(reply), "400 from Peer 'abcd'");
    EXPECT_EQ(described(endpoint.rxMessage), "1 from Peer ''");
}

TEST_F(AsyncRequestTest, WithoutAReplyMessageTheReplyIsInRxMessage) {
    platform.arrive(7, 301);
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 500, nullptr), 0);
    EXPECT_EQ(described(endpoint.rxMessage), "400 from Peer 'abcd'");
}

TEST_F(AsyncRequestTest, ANegativeTimeOutMeansNoLimit) {
    platform.arrive(7, 301);
    platform.arrive(7, 400);
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, -1, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = s4", "linx_send(s4, 7)", "CalcInitialTimeout(-1) = 1001",
                            "linx_receive({0, 0, 0, 0})", "linx_sender(s2)", "linx_free_buf(s2)", goesBack,
                            "ReCalcTimeout(1001)", "CalcInitialTimeout(-1) = 1002", "linx_receive({0, 0, 0, 0})",
                            "linx_sender(s3)", "linx_free_buf(s3)"));
}

TEST_F(AsyncRequestTest, ReplyType0AwaitsNothing) {
    platform.arrive(7, 400);
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 0, 500, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 300) = s3", "linx_send(s3, 7)"));
}

TEST_F(AsyncRequestTest, AFailedSendIsReturnedWithoutALogLineOfItsOwn) {
    platform.fail("linx_alloc", {ENOMEM});
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 500, nullptr), 12);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = null", "log 2 linxIpc:460 Notify: linx_alloc failed: error 12"));
}

TEST_F(AsyncRequestTest, AnAbsentDestinationIsLoggedByTheSend) {
    EXPECT_EQ(endpoint.AsyncRequest("Absent", request, 0, 500, nullptr), -1);
    EXPECT_EQ(platform.takeCalls().back(), "log 2 linxIpc:438 Notify: cannot resolve destination Absent");
}

TEST_F(AsyncRequestTest, LaterReceivesGetOnlyTheTimeLeft) {
    platform.arrive(7, 301);
    platform.timesLeft = {5, 3};
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 500, nullptr), 110);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = s3", "linx_send(s3, 7)", "CalcInitialTimeout(500) = 1001",
                            "CalcInitialTimeout(500) = 1002", "linx_receive_w_tmo(500, {0, 0, 0, 0})",
                            "linx_sender(s2)", "ReCalcTimeout(1002)", "linx_free_buf(s2)", goesBack,
                            "ReCalcTimeout(1001)", "CalcInitialTimeout(3) = 1003", "CalcInitialTimeout(3) = 1004",
                            "linx_receive_w_tmo(3, {0, 0, 0, 0})"));
}

TEST_F(AsyncRequestTest, AShutdownRequestEndsTheWaitWithoutALogLineOfItsOwn) {
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, -1, nullptr), 108);
    EXPECT_EQ(platform.takeCalls().back(), "log 512 linxIpc:802 Receive: Shutdown Requested");
}

TEST_F(AsyncRequestTest, TheDeathOfTheDestinationDoesNotEndTheWait) {
    platform.setName(9, "ConfigMgr");
    platform.arrive(9, 301);
    platform.arrive(7, 1281, word(3));
    platform.arrive(9, 400, "abcd");
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(endpoint.AsyncRequest("ConfigMgr", request, 400, 500, nullptr), 0);
    EXPECT_EQ(described(endpoint.rxMessage), "400 from ConfigMgr 'abcd'");
}

TEST_F(AsyncRequestTest, AnyReceiveErrorEndsTheWait) {
    platform.arrive(7, 301);
    platform.fail("linx_receive", {0, EINVAL});
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, -1, nullptr), 22);
    EXPECT_EQ(platform.takeCalls().back(), "log 2 linxIpc:700 Receive: error 22");
}

TEST_F(AsyncRequestTest, AMessageThatAlreadyHasTheReplyTypeEndsTheWaitAtARelayedSignal) {
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    reply.Allocate(400, 6, std::string("before").data());
    platform.arrive(7, 300, "abcd");
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 10, &reply), 0);
    EXPECT_EQ(described(reply), "400 from Peer 'before'");
}

TEST_F(AsyncRequestTest, AHandlerThatReceivesIntoTheMessageHidesTheReply) {
    endpoint.RegisterHandler(
        400, [](LinxIpc* called, void*) { called->Receive(-1, 301, LinxIpc::emptyString, nullptr); }, nullptr);
    platform.arrive(7, 400);
    platform.arrive(7, 301);
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 10, nullptr), 110);
}

TEST_F(AsyncRequestTest, ARelayedReplyDoesNotEndTheWait) {
    endpoint.RegisterRelayHandler(400, noteRelay, named("relay"));
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.AsyncRequest("Peer", request, 400, 10, &reply), 110);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("relay: 400 from Peer 'abcd'"));
}

}  // namespace
