#include "bench/report/judgement.h"

#include <gmock/gmock.h>

#include <sstream>

namespace bench {

using testing::ContainsRegex;

namespace {

Record taking(const char* peer, std::vector<double> nanoseconds) {
    return {"round-trip", peer, Placement::apart, 64, 2, {{"median_ns", spreadOf(std::move(nanoseconds))}}};
}

std::string judgementOf(const Records& records) {
    std::ostringstream text;
    printJudgement(text, records);
    return text.str();
}

}  // namespace

TEST(Judgement, SaysWhatWasReached) {
    EXPECT_THAT(judgementOf({taking("LinxIpc", {500}), taking("bare memory", {250})}),
                ContainsRegex("through bare memory . at most 3 times . 2 times . yes"));
}

TEST(Judgement, SaysWhatWasMissed) {
    EXPECT_THAT(judgementOf({taking("LinxIpc", {1000}), taking("bare memory", {250})}),
                ContainsRegex("through bare memory . at most 3 times . 4 times . NO"));
}

TEST(Judgement, ComparesWithTheBetterOfTwo) {
    EXPECT_THAT(judgementOf({taking("LinxIpc", {100}), taking("SEQPACKET", {20000}), taking("ZeroMQ", {5000})}),
                ContainsRegex("SEQPACKET and ZeroMQ . at least 100 times . 50 times . NO"));
}

TEST(Judgement, ComparesRunsOfTheSameRound) {
    EXPECT_THAT(judgementOf({taking("LinxIpc", {100, 1000, 1000}), taking("bare memory", {50, 500, 100})}),
                ContainsRegex("through bare memory . at most 3 times . 2 times . yes"));
}

TEST(Judgement, DoesNotJudgeWhatWasNotMeasured) {
    EXPECT_THAT(judgementOf({taking("LinxIpc", {100}), taking("SEQPACKET", {20000})}),
                ContainsRegex("SEQPACKET and ZeroMQ . at least 100 times .  . not measured"));
}

}  // namespace bench
