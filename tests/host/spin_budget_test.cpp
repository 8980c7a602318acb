#include "host/endpoint/spin_budget.h"

#include <gtest/gtest.h>
#include <sched.h>

#include "tests/host/one_processor.h"
#include "tests/kit/domain.h"

namespace linx {
namespace {

constexpr uint64_t most = 50000;

TEST(SpinBudgets, ItGrowsWhereSpinningFindsSomethingUpToItsBound) {
    SpinBudget budget(most);
    for (int i = 0; i < 20; ++i) {
        const uint64_t before = budget.nanoseconds();
        budget.foundWhileSpinning();
        EXPECT_GE(budget.nanoseconds(), before);
        EXPECT_LE(budget.nanoseconds(), most);
    }
    EXPECT_EQ(budget.nanoseconds(), most);
}

TEST(SpinBudgets, ItHalvesDownToNothingWhereSleepsAreLong) {
    SpinBudget budget(most);
    for (int i = 0; i < 20; ++i) {
        const uint64_t before = budget.nanoseconds();
        budget.sleptFor(most);
        EXPECT_LE(budget.nanoseconds(), before / 2);
    }
    EXPECT_EQ(budget.nanoseconds(), 0u);
}

TEST(SpinBudgets, ItGrowsAgainFromNothingAfterShortSleeps) {
    SpinBudget budget(most);
    for (int i = 0; i < 20; ++i) budget.sleptFor(10 * most);
    ASSERT_EQ(budget.nanoseconds(), 0u);
    budget.sleptFor(most - 1);
    EXPECT_GT(budget.nanoseconds(), 0u);
    for (int i = 0; i < 20; ++i) budget.sleptFor(0);
    EXPECT_EQ(budget.nanoseconds(), most);
}

TEST(SpinBudgets, ABoundOfNothingTurnsItOffForGood) {
    SpinBudget budget(0);
    budget.foundWhileSpinning();
    budget.sleptFor(0);
    EXPECT_EQ(budget.nanoseconds(), 0u);
}

TEST(SpinBudgets, YieldingIsTriedAsLongAsItPays) {
    SpinBudget budget(0, most);
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(budget.mayYield());
        budget.yielded(most - 1, true);
    }
}

TEST(SpinBudgets, YieldingIsTriedLessOftenWhileItDoesNotPay) {
    const auto tried = [](uint64_t nanoseconds, bool found) {
        SpinBudget budget(0, most);
        int count = 0;
        for (int i = 0; i < 6400; ++i) {
            if (!budget.mayYield()) continue;
            ++count;
            budget.yielded(nanoseconds, found);
        }
        return count;
    };
    EXPECT_LT(tried(0, false), 120);
    EXPECT_LT(tried(most, true), 120) << "what takes longer than a sleep does not pay";
    EXPECT_GT(tried(0, false), 90) << "it is never given up";
}

TEST(SpinBudgets, WithoutPatienceYieldingIsNotTried) {
    SpinBudget budget(0);
    EXPECT_FALSE(budget.mayYield());
}

TEST(SpinBudgets, TheEnvironmentBoundsIt) {
    cpu_set_t processors;
    ASSERT_EQ(sched_getaffinity(0, sizeof processors, &processors), 0);
    if (CPU_COUNT(&processors) < 2) GTEST_SKIP() << "spinning never pays on one processor";
    const auto bound = [](const char* text) {
        const linxtest::ScopedVariable variable("LINX_SPIN_US", text);
        SpinBudget budget = SpinBudget::fromEnvironment();
        for (int i = 0; i < 30; ++i) budget.foundWhileSpinning();
        return budget.nanoseconds();
    };
    EXPECT_EQ(bound("0"), 0u);
    EXPECT_EQ(bound("7"), 7000u);
    EXPECT_EQ(bound("1000"), 1000000u);
    const uint64_t byDefault = bound(nullptr);
    EXPECT_GT(byDefault, 0u);
    for (const char* bad : {"", "much", "7us", "1001", "4000000000", "-1"}) EXPECT_EQ(bound(bad), byDefault) << bad;
}

TEST(SpinBudgets, OnOneProcessorThereIsNone) {
    const linxtest::OneProcessor only;
    SpinBudget budget = SpinBudget::fromEnvironment();
    budget.foundWhileSpinning();
    EXPECT_EQ(budget.nanoseconds(), 0u);
}

}  // namespace
}  // namespace linx
