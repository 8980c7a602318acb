#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <tuple>

#include "tests/demo/demonstration.h"

namespace {

using testing::Combine;
using testing::Values;

class Interrupted : public testing::TestWithParam<std::tuple<int, std::string>> {};

TEST_P(Interrupted, AtSomePointItEndsItsServersAndLeavesNothing) {
    const auto [number, moment] = GetParam();
    Demonstration run({"--seed", "3", "--rounds", "10"});
    ASSERT_TRUE(run.waitFor(moment)) << run.text();
    EXPECT_EQ(kill(run.launcher(), number), 0);
    EXPECT_EQ(run.finish(), 128 + number) << run.text();
    EXPECT_NE(run.text().find("linx-demo: interrupted by "), std::string::npos);
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

INSTANTIATE_TEST_SUITE_P(Moments, Interrupted,
                         Combine(Values(SIGINT, SIGTERM, SIGHUP),
                                 Values<std::string>("domain ", "hunted WatchdogMgr", "everybody is here",
                                                     "kills GpsHal")));

TEST(Ending, InterruptedWhileALinkIsCutItEndsTheOtherNodesToo) {
    if (!LINX_DEMO_NODES) GTEST_SKIP() << "linx-link was left out";
    Demonstration run({"--seed", "3", "--nodes"});
    ASSERT_TRUE(run.waitFor("kills the link")) << run.text();
    EXPECT_EQ(kill(run.launcher(), SIGTERM), 0);
    EXPECT_EQ(run.finish(), 128 + SIGTERM) << run.text();
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

TEST(Ending, AnInterruptFromTheTerminalReachesTheServersTooAndIsLeftToTheLauncher) {
    Demonstration run({"--seed", "3", "--rounds", "10"});
    ASSERT_TRUE(run.waitFor("everybody is here")) << run.text();
    EXPECT_EQ(kill(-run.launcher(), SIGINT), 0);
    EXPECT_EQ(run.finish(), 128 + SIGINT) << run.text();
    EXPECT_EQ(run.text().find("has ended"), std::string::npos) << run.text();
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

TEST(Ending, ServersDieWithALauncherThatIsKilled) {
    Demonstration run({"--seed", "4", "--rounds", "10"});
    ASSERT_TRUE(run.waitFor("everybody is here")) << run.text();
    kill(run.launcher(), SIGKILL);
    EXPECT_EQ(run.finish(), 256 + SIGKILL);
    waitForAllProcesses();
}

TEST(Ending, AReaderThatGoesAwayDoesNotMakeItLeaveAnythingBehind) {
    Demonstration run({"--seed", "4"});
    ASSERT_TRUE(run.waitFor(", seed ")) << run.text();
    run.stopReading();
    EXPECT_EQ(run.finish(), 0);
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

TEST(Ending, AServerThatStandsStillEndsTheRunAtItsTimeLimit) {
    Demonstration run({"--seed", "5", "--rounds", "10", "--limit", "2"});
    ASSERT_TRUE(run.waitFor("starts PlaybackMgr")) << run.text();
    ASSERT_NE(run.server("StreamMgr"), 0) << run.text();  // with this seed the first to be started
    kill(run.server("StreamMgr"), SIGSTOP);
    EXPECT_EQ(run.finish(), 1) << run.text();
    EXPECT_NE(run.text().find("linx-demo: not finished within 2 s"), std::string::npos) << run.text();
    EXPECT_NE(run.text().find("Not everything happened."), std::string::npos);
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

TEST(Ending, AServerThatDiesUnaskedEndsTheRun) {
    Demonstration run({"--seed", "6", "--rounds", "10"});
    ASSERT_TRUE(run.waitFor("everybody is here")) << run.text();
    ASSERT_NE(run.server("PlaybackMgr"), 0) << run.text();
    kill(run.server("PlaybackMgr"), SIGKILL);
    EXPECT_EQ(run.finish(), 1) << run.text();
    EXPECT_NE(run.text().find("Not everything happened."), std::string::npos) << run.text();
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

}  // namespace
