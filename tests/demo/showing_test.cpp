#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "tests/demo/demonstration.h"

namespace {

bool endsWith(const std::string& line, const std::string& end) {
    return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
}

using Arguments = std::vector<std::string>;

/// What the program says that it shows: the first column, up to the first run of blanks.
std::vector<std::string> capabilitiesWith(Arguments arguments) {
    arguments.push_back("--list");
    Demonstration list(arguments);
    EXPECT_EQ(list.finish(), 0);
    std::vector<std::string> names;
    for (const std::string& line : list.lines()) names.push_back(line.substr(0, line.find("  ")));
    return names;
}

std::string verdictOn(const std::string& capability, const Demonstration& run) {
    for (const std::string& line : run.lines()) {
        if (line.compare(0, capability.size(), capability) == 0) return line;
    }
    return "no line for " + capability;
}

void expectEverythingShown(const Arguments& arguments, std::size_t count = 13) {
    Demonstration run(arguments);
    EXPECT_EQ(run.finish(), 0) << run.text();
    const auto capabilities = capabilitiesWith(arguments);
    EXPECT_EQ(capabilities.size(), count);
    for (const std::string& capability : capabilities) {
        EXPECT_TRUE(endsWith(verdictOn(capability, run), "yes")) << verdictOn(capability, run);
    }
    EXPECT_EQ(run.lines().back(), "Everything happened that was to happen.");
    EXPECT_FALSE(run.domain().empty());
    EXPECT_FALSE(run.domainExists()) << run.domain();
    EXPECT_FALSE(processesLeft());
}

std::vector<std::string> startOrder(const std::string& seed) {
    Demonstration run({"--seed", seed});
    EXPECT_EQ(run.finish(), 0) << run.text();
    std::vector<std::string> order;
    for (const std::string& line : run.lines()) {
        const auto at = line.find("starts ");
        const auto end = line.find(", process ");
        if (at != std::string::npos && end != std::string::npos && line.find(" again ") == std::string::npos) {
            order.push_back(line.substr(at, end - at));
        }
    }
    return order;
}

class ShowingWith : public testing::TestWithParam<std::tuple<std::string, std::string>> {};

TEST_P(ShowingWith, ASeedAndANumberOfRoundsEverythingHappensAndNothingIsLeft) {
    const auto [seed, rounds] = GetParam();
    expectEverythingShown({"--seed", seed, "--rounds", rounds});
}

INSTANTIATE_TEST_SUITE_P(Runs, ShowingWith,
                         testing::Combine(testing::Values<std::string>("1", "2", "3", "20", "18446744073709551615"),
                                          testing::Values<std::string>("1", "4")));

class ShowingAStreamOf : public testing::TestWithParam<std::string> {};

TEST_P(ShowingAStreamOf, SomeBytesEverythingHappensAndNothingIsLeft) {
    expectEverythingShown({"--seed", "7", "--payload", GetParam()});
}

INSTANTIATE_TEST_SUITE_P(Payloads, ShowingAStreamOf, testing::Values<std::string>("1", "8192", "8193", "1048576"));

TEST(Showing, WithTwoNodesBehindLinksTheSameHappensAndTheLinksAreCutAndBack) {
    if (!LINX_DEMO_NODES) GTEST_SKIP() << "linx-link was left out";
    expectEverythingShown({"--nodes", "--seed", "4"}, 15);
}

TEST(Showing, TheSeedDecidesInWhichOrderTheServersStart) {
    const auto first = startOrder("5");
    EXPECT_EQ(std::set<std::string>(first.begin(), first.end()).size(), 9U);
    EXPECT_EQ(startOrder("5"), first);
    EXPECT_NE(startOrder("6"), first);
}

TEST(Showing, TheServersMeetInTheDomainOfTheirOwnRunOnly) {
    Demonstration one({"--seed", "1"});
    Demonstration other({"--seed", "1"});
    EXPECT_EQ(one.finish(), 0) << one.text();
    EXPECT_EQ(other.finish(), 0) << other.text();
    EXPECT_NE(other.domain(), one.domain());
}

}  // namespace
