#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

#include "host/services/Stamp.h"
#include "platform/DiffTime.h"

namespace {

using linx::leftAt;
using linx::stampAt;

TEST(Stamp, TimeLeftShrinksAsTimePasses) {
    const auto stamp = stampAt(1000, 250);
    EXPECT_EQ(leftAt(1000, stamp), 250);
    EXPECT_EQ(leftAt(1100, stamp), 150);
    EXPECT_EQ(leftAt(1249, stamp), 1);
}

TEST(Stamp, TimeLeftIsClampedAtZero) {
    const auto stamp = stampAt(1000, 250);
    EXPECT_EQ(leftAt(1250, stamp), 0);
    EXPECT_EQ(leftAt(1251, stamp), 0);
    EXPECT_EQ(leftAt(5000000, stamp), 0);
}

TEST(Stamp, ALimitOfZeroHasRunOutAtOnce) {
    EXPECT_EQ(leftAt(7, stampAt(7, 0)), 0);
}

TEST(Stamp, AnyNegativeTimeOutNeverRunsOutAndComesBackNegative) {
    for (const int milliseconds : {-1, -2, -1000, INT_MIN}) {
        const auto stamp = stampAt(12345, milliseconds);
        for (const std::uint32_t now : {0U, 12345U, 0x7fffffffU, 0x80000000U, UINT32_MAX}) {
            EXPECT_GT(0, leftAt(now, stamp)) << milliseconds << " at " << now;
        }
    }
}

TEST(Stamp, ALimitWorksAcrossTheWrapOfTheMilliseconds) {
    const std::uint32_t start = UINT32_MAX - 99;  // the clock reads 0 after 100 ms
    const auto stamp = stampAt(start, 300);
    EXPECT_EQ(leftAt(start, stamp), 300);
    EXPECT_EQ(leftAt(UINT32_MAX, stamp), 201);
    EXPECT_EQ(leftAt(0, stamp), 200);
    EXPECT_EQ(leftAt(199, stamp), 1);
    EXPECT_EQ(leftAt(200, stamp), 0);
}

TEST(Stamp, TheLongestLimitWorksFromEveryPartOfTheClock) {
    for (const std::uint32_t start : {0U, 1U, 0x7ffffffeU, 0x80000001U, 0xc0000000U, UINT32_MAX}) {
        const auto stamp = stampAt(start, INT_MAX);
        EXPECT_EQ(leftAt(start, stamp), INT_MAX) << start;
        EXPECT_EQ(leftAt(start + 10, stamp), INT_MAX - 10) << start;
        EXPECT_EQ(leftAt(start + static_cast<std::uint32_t>(INT_MAX), stamp), 0) << start;
    }
}

TEST(Stamp, ALimitThatEndsOnTheReservedStampEndsAMillisecondEarly) {
    EXPECT_EQ(leftAt(UINT32_MAX - 10, stampAt(UINT32_MAX - 10, 10)), 9);
    EXPECT_EQ(leftAt(0x80000000U, stampAt(0x80000000U, INT_MAX)), INT_MAX - 1);
    EXPECT_EQ(leftAt(UINT32_MAX, stampAt(UINT32_MAX, 0)), 0);
}

TEST(Stamp, ALimitReadsZeroForHalfTheClockAfterItsEnd) {
    const auto stamp = stampAt(5000, 1000);
    EXPECT_EQ(leftAt(6000U + 0x80000000U, stamp), 0);
    EXPECT_EQ(leftAt(6001U + 0x80000000U, stamp), INT_MAX) << "the documented bound has moved";
}

TEST(DiffTime, AFreshLimitHasNoMoreLeftThanWasGiven) {
    const int left = DiffTime::ReCalcTimeout(DiffTime::CalcInitialTimeout(3600000));
    EXPECT_LE(left, 3600000);
    EXPECT_GT(left, 0);
}

TEST(DiffTime, ALimitOfZeroHasNothingLeft) {
    EXPECT_EQ(DiffTime::ReCalcTimeout(DiffTime::CalcInitialTimeout(0)), 0);
}

TEST(DiffTime, ANegativeTimeOutStaysNegativeThroughRepeatedStamps) {
    int left = -1;
    for (int turn = 0; turn < 3; ++turn) {
        left = DiffTime::ReCalcTimeout(DiffTime::CalcInitialTimeout(left));
        EXPECT_GT(0, left);
    }
}

}  // namespace
