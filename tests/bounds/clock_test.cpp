// Clocks that jump: the time of day means nothing here, and a leap of the monotonic clock makes due what it has
// passed.

#include <time.h>

#include <chrono>

#include "platform/DiffTime.h"
#include "tests/bounds/clocks.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr int32_t day = 86400;
constexpr uint32_t item = 100;
constexpr uint32_t hour = 3600000;  // milliseconds

class Clocks : public ProcessTest {
protected:
    void TearDown() override {
        clocks::setTimeOfDayOff(0);
        clocks::setMonotonicOff(0);
        ProcessTest::TearDown();
    }

    static uint64_t nanoseconds() {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
    }
};

TEST_F(Clocks, AreThoseOfThisProgram) {
    const unsigned before = clocks::timesOfDayAsked();
    const time_t today = time(nullptr);
    clocks::setTimeOfDayOff(day);
    EXPECT_GE(time(nullptr), today + day);
    EXPECT_GE(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()), today + day);
    EXPECT_EQ(clocks::timesOfDayAsked(), before + 3);
}

TEST_F(Clocks, OfTheDayAreNeverAsked) {
    const unsigned before = clocks::timesOfDayAsked();
    for (const int32_t off : {day, -day, 0, -10 * day}) {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        const uint64_t start = nanoseconds();
        ASSERT_NE(linx_request_tmo(endpoint, 20, nullptr), 0u);
        ASSERT_NE(linx_request_tmo(endpoint, hour, nullptr), 0u);
        const unsigned stamp = DiffTime::CalcInitialTimeout(static_cast<int>(hour));
        clocks::setTimeOfDayOff(off);
        EXPECT_FALSE(receive(endpoint, 5, {item}));
        EXPECT_EQ(send(endpoint, own, item), 0);
        expectAmongOthers(endpoint, item);
        expectAmongOthers(endpoint, LINX_OS_TIMEOUT_SIG);
        EXPECT_GE(nanoseconds() - start, 20000000u);
        expectNothing(endpoint);
        const int left = DiffTime::ReCalcTimeout(stamp);
        EXPECT_GT(left, 0);
        EXPECT_LE(left, static_cast<int>(hour));
    }
    EXPECT_EQ(clocks::timesOfDayAsked(), before);
}

TEST_F(Clocks, LeapingAheadMakeDueWhatTheyHavePassed) {
    Endpoint endpoint("endpoint");
    const LinxSpid own = spidOf(endpoint);
    ASSERT_NE(linx_request_tmo(endpoint, hour, nullptr), 0u);
    ASSERT_NE(linx_request_tmo(endpoint, 48 * hour, nullptr), 0u);
    const unsigned stamp = DiffTime::CalcInitialTimeout(static_cast<int>(hour));
    const unsigned never = DiffTime::CalcInitialTimeout(-1);
    expectNothing(endpoint);
    clocks::setMonotonicOff(day);
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), 0);
    EXPECT_EQ(DiffTime::ReCalcTimeout(never), -1);
    expectSignal(endpoint, LINX_OS_TIMEOUT_SIG, 0);
    expectNothing(endpoint);
    // From here on all goes as before.
    EXPECT_EQ(send(endpoint, own, item), 0);
    expectSignal(endpoint, item, 0);
    EXPECT_FALSE(receive(endpoint, 5));
    ASSERT_NE(linx_request_tmo(endpoint, 1, nullptr), 0u);
    expectSignal(endpoint, LINX_OS_TIMEOUT_SIG);
    expectNothing(endpoint);
}

}  // namespace
