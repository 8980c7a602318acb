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
    ASSERT_TRUE(run.WaitFor(moment)) << run.Text();
    EXPECT_EQ(0, kill(run.Launcher(), number));
    EXPECT_EQ(128 + number, run.Finish()) << run.Text();
    EXPECT_NE(std::string::npos, run.Text().find("linx-demo: interrupted by "));
    EXPECT_FALSE(run.DomainExists()) << run.Domain();
    EXPECT_FALSE(ProcessesLeft());
}

INSTANTIATE_TEST_SUITE_P(Moments, Interrupted,
                         Combine(Values(SIGINT, SIGTERM, SIGHUP),
                                 Values<std::string>("domain ", "hunted WatchdogMgr", "everybody is here",
                                                     "kills GpsHal")));

TEST(Ending, AnInterruptFromTheTerminalReachesTheServersTooAndIsLeftToTheLauncher) {
    Demonstration run({"--seed", "3", "--rounds", "10"});
    ASSERT_TRUE(run.WaitFor("everybody is here")) << run.Text();
    EXPECT_EQ(0, kill(-run.Launcher(), SIGINT));
    EXPECT_EQ(128 + SIGINT, run.Finish()) << run.Text();
    EXPECT_EQ(std::string::npos, run.Text().find("has ended")) << run.Text();
    EXPECT_FALSE(run.DomainExists()) << run.Domain();
    EXPECT_FALSE(ProcessesLeft());
}

TEST(Ending, ServersDieWithALauncherThatIsKilled) {
    Demonstration run({"--seed", "4", "--rounds", "10"});
    ASSERT_TRUE(run.WaitFor("everybody is here")) << run.Text();
    kill(run.Launcher(), SIGKILL);
    EXPECT_EQ(256 + SIGKILL, run.Finish());
    WaitForAllProcesses();
}

TEST(Ending, AReaderThatGoesAwayDoesNotMakeItLeaveAnythingBehind) {
    Demonstration run({"--seed", "4"});
    ASSERT_TRUE(run.WaitFor(", seed ")) << run.Text();
    run.StopReading();
    EXPECT_EQ(0, run.Finish());
    EXPECT_FALSE(run.DomainExists()) << run.Domain();
    EXPECT_FALSE(ProcessesLeft());
}

TEST(Ending, AServerThatStandsStillEndsTheRunAtItsTimeLimit) {
    Demonstration run({"--seed", "5", "--rounds", "10", "--limit", "2"});
    ASSERT_TRUE(run.WaitFor("starts PlaybackMgr")) << run.Text();
    ASSERT_NE(0, run.Server("StreamMgr")) << run.Text();  // with this seed the first to be started
    kill(run.Server("StreamMgr"), SIGSTOP);
    EXPECT_EQ(1, run.Finish()) << run.Text();
    EXPECT_NE(std::string::npos, run.Text().find("linx-demo: not finished within 2 s")) << run.Text();
    EXPECT_NE(std::string::npos, run.Text().find("Not everything happened."));
    EXPECT_FALSE(run.DomainExists()) << run.Domain();
    EXPECT_FALSE(ProcessesLeft());
}

TEST(Ending, AServerThatDiesUnaskedEndsTheRun) {
    Demonstration run({"--seed", "6", "--rounds", "10"});
    ASSERT_TRUE(run.WaitFor("everybody is here")) << run.Text();
    ASSERT_NE(0, run.Server("PlaybackMgr")) << run.Text();
    kill(run.Server("PlaybackMgr"), SIGKILL);
    EXPECT_EQ(1, run.Finish()) << run.Text();
    EXPECT_NE(std::string::npos, run.Text().find("Not everything happened.")) << run.Text();
    EXPECT_FALSE(run.DomainExists()) << run.Domain();
    EXPECT_FALSE(ProcessesLeft());
}

}  // namespace
