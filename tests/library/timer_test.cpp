#include <cerrno>

#include "fixture.h"

namespace {

class TimerTest : public EndpointTest {};

TEST_F(TimerTest, WithoutInitItIsRefused) {
    EXPECT_EQ(unopened.EnableTimer(100, 500), -1);
    EXPECT_EQ(unopened.EnableTimer(100, 0), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:992 LinxIpc::Attach use of un-initialized object",
                                                  "log 2 linxIpc:992 LinxIpc::Attach use of un-initialized object"));
}

TEST_F(TimerTest, ASignalNumberIsRequestedWithAnEmptySignal) {
    EXPECT_EQ(endpoint.EnableTimer(250, 500), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s1", "linx_request_tmo(250, s1) = 501"));
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
}

TEST_F(TimerTest, NumberZeroRequestsTheDefaultSignal) {
    EXPECT_EQ(endpoint.EnableTimer(250, 0), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_request_tmo(250, null) = 501"));
}

TEST_F(TimerTest, TheTimeOutArrivesAsAMessageWithoutPayload) {
    endpoint.RegisterHandler(500, noteMessage, named("timer"));
    endpoint.EnableTimer(250, 500);
    platform.setName(1, "Self");
    platform.arrive(1, 500);
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("timer: 500 from Self ''"));
    EXPECT_EQ(endpoint.rxMessage.Length(), 0u);
}

TEST_F(TimerTest, AFailedAllocationIsLoggedAndReturned) {
    platform.fail("linx_alloc", {ENOMEM});
    EXPECT_EQ(endpoint.EnableTimer(250, 500), 12);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 500) = null", "log 2 linxIpc:1004 LinxIpc::EnableTimer: error 12"));
}

TEST_F(TimerTest, AFailedAllocationKeepsTheEarlierTimer) {
    endpoint.EnableTimer(250, 0);
    platform.fail("linx_alloc", {ENOMEM});
    endpoint.EnableTimer(250, 500);
    platform.takeCalls();
    endpoint.DisableTimer();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_cancel_tmo(501)"));
}

TEST_F(TimerTest, ARefusedRequestIsLoggedAndReturned) {
    platform.fail("linx_request_tmo", {ENOMEM, ENOSPC});
    EXPECT_EQ(endpoint.EnableTimer(250, 500), 12);
    EXPECT_EQ(endpoint.EnableTimer(250, 0), 28);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 500) = s1", "linx_request_tmo(250, s1) = 0",
                            "log 2 linxIpc:1015 LinxIpc::EnableTimer: error 12", "linx_request_tmo(250, null) = 0",
                            "log 2 linxIpc:1015 LinxIpc::EnableTimer: error 28"));
}

TEST_F(TimerTest, ARefusedRequestForgetsTheEarlierTimer) {
    endpoint.EnableTimer(250, 0);
    platform.fail("linx_request_tmo", {ENOMEM});
    endpoint.EnableTimer(250, 0);
    platform.takeCalls();
    endpoint.DisableTimer();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_cancel_tmo(0)"));
}

TEST_F(TimerTest, ASecondTimerReplacesTheReferenceAndCancelsNothing) {
    endpoint.EnableTimer(100, 500);
    endpoint.EnableTimer(200, 501);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s1", "linx_request_tmo(100, s1) = 501",
                                                  "linx_alloc(4, 501) = s2", "linx_request_tmo(200, s2) = 502"));
    EXPECT_EQ(endpoint.DisableTimer(), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_cancel_tmo(502)"));
}

TEST_F(TimerTest, DisableTimerPassesTheResultOnAndKeepsTheReference) {
    endpoint.EnableTimer(100, 0);
    platform.takeCalls();
    platform.cancelResult = -1;
    EXPECT_EQ(endpoint.DisableTimer(), -1);
    platform.cancelResult = 5;
    EXPECT_EQ(endpoint.DisableTimer(), 5);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_cancel_tmo(501)", "linx_cancel_tmo(501)"));
}

TEST_F(TimerTest, DisableTimerWithoutInitIsLeftToLinx) {
    platform.cancelResult = -1;
    EXPECT_EQ(unopened.DisableTimer(), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("[null]linx_cancel_tmo(0)"));
}

TEST_F(TimerTest, ANegativeTimeOutIsPassedOnAsItIs) {
    EXPECT_EQ(endpoint.EnableTimer(-1, 0), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_request_tmo(4294967295, null) = 501"));
}

}  // namespace
