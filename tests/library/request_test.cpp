#include <cerrno>
#include <cstdint>
#include <string>

#include "fixture.h"

namespace {

class RequestTest : public EndpointTest {
protected:
    RequestTest() {
        for (const auto& [spid, name] : {std::pair<LinxSpid, const char*>{7, "ConfigMgr"}, {8, "Other"}}) {
            platform.setName(spid, name);
            platform.arrive(spid, 1);
            endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        }
        platform.takeCalls();
        request.Allocate(300, 0, nullptr);
    }

    IpcMessage request;
    IpcMessage reply;
};

TEST_F(RequestTest, WithoutInitItIsRefused) {
    EXPECT_EQ(unopened.Request("ConfigMgr", request, 400, 0, &reply), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:529 Request: use of un-initialized object"));
}

TEST_F(RequestTest, ItSendsAndAwaitsTheReply) {
    endpoint.RegisterHandler(400, noteMessage, named("handler"));
    platform.arrive(8, 301, "left");
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 500, &reply), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = s5", "linx_send(s5, 7)", "CalcInitialTimeout(500) = 1001",
                            "linx_receive_w_tmo(500, {3, 1280, 1281, 400})", "linx_sender(s4)", "ReCalcTimeout(1001)",
                            "linx_free_buf(s4)"));
    EXPECT_EQ(described(reply), "400 from ConfigMgr 'abcd'");
    EXPECT_EQ(described(endpoint.rxMessage), "1 from Other ''");
}

TEST_F(RequestTest, WithoutAReplyMessageTheReplyIsInRxMessage) {
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, nullptr), 0);
    EXPECT_EQ(described(endpoint.rxMessage), "400 from ConfigMgr 'abcd'");
}

TEST_F(RequestTest, TheMessageSentMayTakeTheReply) {
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, &request), 0);
    EXPECT_EQ(described(request), "400 from ConfigMgr 'abcd'");
}

TEST_F(RequestTest, ReplyType0AwaitsNothing) {
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 0, 500, &reply), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 300) = s4", "linx_send(s4, 7)"));
}

TEST_F(RequestTest, AReplyFromAnotherEndpointIsAccepted) {
    platform.arrive(8, 400, "other");
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 500, &reply), 0);
    EXPECT_EQ(described(reply), "400 from Other 'other'");
}

TEST_F(RequestTest, ALateReplyIsTakenForTheAnswerToTheNextRequest) {
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 10, &reply), 110);
    platform.arrive(7, 400, "late");
    platform.arrive(7, 400, "right");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 10, &reply), 0);
    EXPECT_EQ(described(reply), "400 from ConfigMgr 'late'");
    EXPECT_EQ(endpoint.Receive(10, 400, "ConfigMgr", &reply), 0);
    EXPECT_EQ(described(reply), "400 from ConfigMgr 'right'");
}

TEST_F(RequestTest, AReplyWithARelayHandlerGoesToThatHandler) {
    endpoint.RegisterRelayHandler(400, noteRelay, named("relay"));
    reply.Allocate(299, 6, std::string("before").data());
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 500, &reply), 0);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("relay: 400 from ConfigMgr 'abcd'"));
    EXPECT_EQ(described(reply), "299 from ConfigMgr 'before'") << "only the sender is taken over";
}

TEST_F(RequestTest, AShutdownRequestWithARelayHandlerEndsTheWaitWithZero) {
    endpoint.RegisterRelayHandler(1280, noteRelay, named("relay"));
    platform.arrive(8, 1280);
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, &reply), 0);
    EXPECT_EQ(described(reply), "0 from Other ''");
}

TEST_F(RequestTest, TheNoticeOfAnAttachDoesNotEndTheWait) {
    for (const unsigned number : {500u, 1281u}) {
        ASSERT_EQ(endpoint.Attach("ConfigMgr", number), 0);
        platform.arrive(7, number);
        EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 10, &reply), 110);
    }
}

TEST_F(RequestTest, NoNoticeReportsTheDeathOfADestinationOutsideTheDirectory) {
    for (std::int32_t process = -1; process <= 39; ++process) platform.arrive(7, 1281, word(process));
    EXPECT_EQ(endpoint.Request("Other", request, 400, 10, &reply), 110);
}

TEST_F(RequestTest, AFailedSendIsLoggedAndReturned) {
    EXPECT_EQ(endpoint.Request("Absent", request, 400, 500, &reply), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = Absent",
                            "linx_hunt(\"Absent\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "log 2 linxIpc:973 LinxIpc::ResolveDestination: unresolved",
                            "log 2 linxIpc:438 Notify: cannot resolve destination Absent",
                            "log 2 linxIpc:550 Request: call to LinxIpc::Notify failed: -1"));
}

TEST_F(RequestTest, AnErrorOfTheSendIsReturnedAsItIs) {
    platform.fail("linx_alloc", {ENOMEM});
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 0, 500, &reply), 12);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = null", "log 2 linxIpc:460 Notify: linx_alloc failed: error 12",
                            "log 2 linxIpc:550 Request: call to LinxIpc::Notify failed: 12"));
}

TEST_F(RequestTest, ATimeOutIsLoggedAndReturned) {
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, 500, &reply), 110);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = s3", "linx_send(s3, 7)", "CalcInitialTimeout(500) = 1001",
                            "linx_receive_w_tmo(500, {3, 1280, 1281, 400})",
                            "log 2 linxIpc:544 Request: call to LinxIpc::Receive failed: 110"));
}

TEST_F(RequestTest, TheDeathOfTheDestinationEndsTheWait) {
    platform.arrive(8, 1281, word(3));
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, &reply), 113);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAre("linx_alloc(4, 300) = s4", "linx_send(s4, 7)", "linx_receive({3, 1280, 1281, 400})",
                    "linx_sender(s3)", "linx_free_buf(s3)", "log 16 linxIpc:813 Receive: Process died 3 - ConfigMgr",
                    "log 2 linxIpc:817 Receive: host unreachable",
                    "log 2 linxIpc:544 Request: call to LinxIpc::Receive failed: 113"));
}

TEST_F(RequestTest, TheDeathOfAnotherProcessDoesNotEndTheWait) {
    platform.arrive(8, 1281, word(2));
    platform.arrive(7, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, &reply), 0);
    EXPECT_EQ(described(reply), "400 from ConfigMgr 'abcd'");
}

TEST_F(RequestTest, AShutdownRequestEndsTheWait) {
    endpoint.RegisterShutdown(noteMessage, named("shutdown"));
    platform.arrive(8, 1280);
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, nullptr), 108);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 300) = s4", "linx_send(s4, 7)", "linx_receive({3, 1280, 1281, 400})",
                            "linx_sender(s3)", "shutdown: 1280 from Other ''", "linx_free_buf(s3)",
                            "log 512 linxIpc:802 Receive: Shutdown Requested",
                            "log 2 linxIpc:544 Request: call to LinxIpc::Receive failed: 108"));
}

TEST_F(RequestTest, ASendGivenUpAfter32AttemptsStillAwaitsTheReply) {
    platform.answerHunts("ConfigMgr", {7});
    platform.failAlways("linx_send", ECONNRESET);
    platform.level = 0;
    platform.arrive(8, 400, "abcd");
    EXPECT_EQ(endpoint.Request("ConfigMgr", request, 400, -1, &reply), 0);
    EXPECT_EQ(platform.sent.size(), 32u);
    EXPECT_EQ(described(reply), "400 from Other 'abcd'");
}

}  // namespace
