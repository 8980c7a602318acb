#include <cerrno>

#include "fixture.h"

namespace {

class ReceiveWatchdogTest : public EndpointTest {
protected:
    Watchdog watchdog;
};

TEST_F(ReceiveWatchdogTest, AHandledSignalPetsTheWatchdog) {
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    platform.setName(7, "Peer");
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(watchdog, 500), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("CalcInitialTimeout(500) = 1001", "linx_receive_w_tmo(500, {0, 0, 0, 0})",
                            "linx_sender(s1)", "linx_get_name(7)", "linx_free_name(\"Peer\")",
                            "handler: 300 from Peer ''", "ReCalcTimeout(1001)", "linx_free_buf(s1)", "PetWatchdog"));
}

TEST_F(ReceiveWatchdogTest, AQuietTimeOutPetsTheWatchdogAndReturnsItsResult) {
    EXPECT_EQ(endpoint.Receive(watchdog, 500), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("CalcInitialTimeout(500) = 1001",
                                                  "linx_receive_w_tmo(500, {0, 0, 0, 0})", "PetWatchdog"));
}

TEST_F(ReceiveWatchdogTest, TheResultIsThatOfTheWatchdog) {
    platform.watchdogResult = 42;
    EXPECT_EQ(endpoint.Receive(watchdog, 0), 42);
    platform.watchdogResult = -1;
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(watchdog, -1), -1);
}

TEST_F(ReceiveWatchdogTest, AShutdownRequestDoesNotPetTheWatchdog) {
    platform.watchdogResult = 42;
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.Receive(watchdog, -1), 108);
    EXPECT_THAT(platform.takeCalls(), ::testing::Not(::testing::Contains("PetWatchdog")));
}

TEST_F(ReceiveWatchdogTest, AFailureDoesNotPetTheWatchdog) {
    platform.watchdogResult = 42;
    platform.fail("linx_receive", {EINVAL});
    EXPECT_EQ(endpoint.Receive(watchdog, -1), 22);
    EXPECT_EQ(unopened.Receive(watchdog, -1), -1);
    EXPECT_THAT(platform.takeCalls(), ::testing::Not(::testing::Contains("PetWatchdog")));
}

TEST_F(ReceiveWatchdogTest, AMessageThatCouldNotBeCopiedDoesNotPetTheWatchdog) {
    platform.arrive(7, 300, "abcd");
    interposed::refusesArrays = true;
    EXPECT_EQ(endpoint.Receive(watchdog, -1), 12);
    EXPECT_THAT(platform.takeCalls(), ::testing::Not(::testing::Contains("PetWatchdog")));
}

TEST_F(ReceiveWatchdogTest, NoPeerIsAwaited) {
    platform.arrive(7, 1281, word(0));
    EXPECT_EQ(endpoint.Receive(watchdog, 5), 0);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("PetWatchdog"));
}

}  // namespace
