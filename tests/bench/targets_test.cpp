#include "bench/report/targets.h"

#include <gmock/gmock.h>

#include <sstream>

namespace bench {

using testing::ContainsRegex;

namespace {

Record taking(const char* peer, std::vector<double> nanoseconds) {
    return {"round-trip", peer, Placement::apart, 64, 2, {{"median_ns", spreadOf(std::move(nanoseconds))}}};
}

std::string targetsOf(const Records& records) {
    std::ostringstream text;
    printTargets(text, records);
    return text.str();
}

}  // namespace

TEST(Targets, SayWhatWasReached) {
    EXPECT_THAT(targetsOf({taking("LinxIpc", {500}), taking("bare memory", {250})}),
                ContainsRegex("through bare memory . at most 3 times . 2 times . yes"));
}

TEST(Targets, SayWhatWasMissed) {
    EXPECT_THAT(targetsOf({taking("LinxIpc", {1000}), taking("bare memory", {250})}),
                ContainsRegex("through bare memory . at most 3 times . 4 times . NO"));
}

TEST(Targets, CompareWithTheBetterOfTwo) {
    EXPECT_THAT(targetsOf({taking("LinxIpc", {100}), taking("SEQPACKET", {20000}), taking("ZeroMQ", {5000})}),
                ContainsRegex("SEQPACKET and ZeroMQ . at least 100 times . 50 times . NO"));
}

TEST(Targets, CompareRunsOfTheSameRound) {
    EXPECT_THAT(targetsOf({taking("LinxIpc", {100, 1000, 1000}), taking("bare memory", {50, 500, 100})}),
                ContainsRegex("through bare memory . at most 3 times . 2 times . yes"));
}

TEST(Targets, DoNotJudgeWhatWasNotMeasured) {
    EXPECT_THAT(targetsOf({taking("LinxIpc", {100}), taking("SEQPACKET", {20000})}),
                ContainsRegex("SEQPACKET and ZeroMQ . at least 100 times .  . not measured"));
}

}  // namespace bench
