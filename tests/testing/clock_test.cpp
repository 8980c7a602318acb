// The clock, and what happens by it.

#include <stdexcept>

#include "fixture.h"
#include "platform/DiffTime.h"

namespace {

class ClockTest : public PlatformTest {};

TEST_F(ClockTest, StandsUntilItIsTurned) {
    EXPECT_EQ(platform.now(), 0ms);
    platform.advance(20ms);
    platform.advance(2s);
    EXPECT_EQ(platform.now(), 2020ms);
}

TEST_F(ClockTest, DoesNotGoBack) {
    EXPECT_THROW(platform.advance(-1ms), std::invalid_argument);
    EXPECT_THROW(platform.arriveAfter(-1ms, 7, 300), std::invalid_argument);
    EXPECT_EQ(platform.now(), 0ms);
}

TEST_F(ClockTest, AWaitInVainTakesItsTime) {
    EXPECT_EQ(receiveWithin(250), "nothing");
    EXPECT_EQ(platform.now(), 250ms);
}

TEST_F(ClockTest, AReceiveThatNeedsNotWaitTakesNoTime) {
    platform.arrive(7, 300);
    receiveWithin(250);
    EXPECT_EQ(platform.now(), 0ms);
}

TEST_F(ClockTest, AWaitEndsWhenSomethingSelectedArrives) {
    const std::uint32_t selection[] = {1, 301};
    platform.arriveAfter(200ms, 7, 301);
    platform.arriveAfter(100ms, 7, 300);
    platform.arriveAfter(250ms, 7, 302);
    EXPECT_EQ(receiveWithin(250, selection), "301 '' from 7");
    EXPECT_EQ(platform.now(), 200ms);
    EXPECT_EQ(receiveWithin(0), "300 '' from 7");
    EXPECT_EQ(receiveWithin(0), "nothing") << "the third is not due yet";
    EXPECT_EQ(receiveWithin(50), "302 '' from 7") << "the limit is the last moment";
}

TEST_F(ClockTest, AWaitWithoutLimitDoesNotTurnIt) {
    platform.arriveAfter(1ms, 7, 300);
    EXPECT_EQ(receive(self), "error " + std::to_string(EDEADLK));
    platform.advance(1ms);
    EXPECT_EQ(receive(self), "300 '' from 7");
}

TEST_F(ClockTest, WhatIsDueArrivesInTheOrderOfItsTimes) {
    platform.arriveAfter(20ms, 7, 302);
    platform.arriveAfter(10ms, 7, 300);
    platform.arriveAfter(20ms, 7, 303);
    platform.arriveAfter(10ms, 7, 301);
    platform.advance(1h);
    for (const char* const expected : {"300", "301", "302", "303"}) {
        EXPECT_EQ(receive(self), std::string(expected) + " '' from 7");
    }
}

TEST_F(ClockTest, ATimeOutArrivesFromTheEndpointItselfWhenItsTimeHasCome) {
    linx_request_tmo(self, 100, nullptr);
    signal = linx_alloc(self, 8, 500);
    std::memcpy(signal + 1, "abcd", 4);
    linx_request_tmo(self, 50, &signal);
    EXPECT_EQ(signal, nullptr);
    platform.advance(49ms);
    EXPECT_EQ(receiveWithin(0), "nothing");
    platform.advance(1ms);
    EXPECT_EQ(receive(self), "500 'abcd' from 1");
    EXPECT_EQ(receiveWithin(50), "252 '' from 1");
    EXPECT_EQ(platform.now(), 100ms);
}

TEST_F(ClockTest, AReceivedSignalThatIsATimeOutArrivesFromTheEndpointItself) {
    platform.arrive(7, 300);
    linx_receive(self, &signal, any);
    linx_request_tmo(self, 50, &signal);
    EXPECT_EQ(receiveWithin(50), "300 '' from 1");
}

TEST_F(ClockTest, ATimeOutCanBeCancelledAlsoWhenItHasArrived) {
    LinxRef pending = linx_request_tmo(self, 100, nullptr);
    LinxRef arrived = linx_request_tmo(self, 50, nullptr);
    platform.advance(50ms);
    EXPECT_EQ(linx_cancel_tmo(self, &pending), 0);
    EXPECT_EQ(linx_cancel_tmo(self, &arrived), 0);
    EXPECT_EQ(pending, 0u);
    EXPECT_EQ(arrived, 0u);
    EXPECT_EQ(receiveWithin(1000), "nothing");
}

TEST_F(ClockTest, ATimeOutThatWasReceivedOrCancelledIsUnknown) {
    LinxRef reference = linx_request_tmo(self, 50, nullptr);
    const LinxRef known = reference;
    receiveWithin(50);
    EXPECT_EQ(linx_cancel_tmo(self, &reference), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(reference, known);
    platform.arriveAfter(10ms, 7, 300);
    LinxRef none = 0;
    EXPECT_EQ(linx_cancel_tmo(self, &none), -1);
    EXPECT_EQ(receiveWithin(10), "300 '' from 7");
}

TEST_F(ClockTest, TheResultOfACancellationCanBeChosen) {
    platform.cancelResult = 5;
    LinxRef reference = linx_request_tmo(self, 50, nullptr);
    const LinxRef known = reference;
    EXPECT_EQ(linx_cancel_tmo(self, &reference), 5);
    EXPECT_EQ(reference, known);
    EXPECT_EQ(receiveWithin(50), "252 '' from 1");
}

TEST_F(ClockTest, DiffTimeRunsOnIt) {
    const unsigned stamp = DiffTime::CalcInitialTimeout(500);
    const unsigned never = DiffTime::CalcInitialTimeout(-5);
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), 500);
    platform.advance(180ms);
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), 320);
    platform.advance(1h);
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), 0);
    EXPECT_LT(DiffTime::ReCalcTimeout(never), 0);
}

TEST_F(ClockTest, DiffTimeMaySayWhateverATestWants) {
    const unsigned stamp = DiffTime::CalcInitialTimeout(500);
    platform.timesLeft = {-1, 700};
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), -1);
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), 700);
    EXPECT_EQ(DiffTime::ReCalcTimeout(stamp), 500);
}

}  // namespace
