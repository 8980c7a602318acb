#include "bench/harness/statistics.h"

#include <gtest/gtest.h>

#include <numeric>

namespace bench {

TEST(Statistics, TheMedianOfAnOddNumberOfRunsIsTheMiddleOne) {
    const Spread spread = spreadOf({9, 1, 5});
    EXPECT_EQ(spread.median, 5);
    EXPECT_EQ(spread.least, 1);
    EXPECT_EQ(spread.most, 9);
}

TEST(Statistics, TheMedianOfAnEvenNumberOfRunsLiesBetweenTheMiddleTwo) {
    EXPECT_EQ(spreadOf({4, 1, 2, 100}).median, 3);
}

TEST(Statistics, AQuantileHasItsPartOfTheSamplesBelowIt) {
    std::vector<std::uint32_t> samples(101);
    std::iota(samples.rbegin(), samples.rend(), 0U);
    EXPECT_EQ(quantile(samples, 0.5), 50);
    EXPECT_EQ(quantile(samples, 0.99), 99);
    EXPECT_EQ(quantile(samples, 0), 0);
    EXPECT_EQ(quantile(samples, 1), 100);
}

TEST(Statistics, ASingleSampleIsEveryQuantile) {
    std::vector<std::uint32_t> samples = {7};
    EXPECT_EQ(quantile(samples, 0.5), 7);
    EXPECT_EQ(quantile(samples, 0.99), 7);
}

TEST(Statistics, EveryFigureIsSpreadOverItsOwnRuns) {
    const Spreads spreads = spreadsOf({{{"a_ns", 1}, {"b_ns", 10}}, {{"a_ns", 3}, {"b_ns", 30}}});
    ASSERT_EQ(spreads.size(), 2U);
    EXPECT_EQ(spreads.at("a_ns").median, 2);
    EXPECT_EQ(spreads.at("b_ns").most, 30);
}

}  // namespace bench
