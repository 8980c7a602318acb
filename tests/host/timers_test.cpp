#include "host/endpoint/timers.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/host/interposed.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

class TimersTest : public ::testing::Test {
protected:
    std::vector<uint32_t> fireAll(uint64_t now) {
        std::vector<uint32_t> fired;
        for (Ref signal; (signal = timers.due(now)) != Ref::none;) {
            fired.push_back(numberOf(signal));
            timers.fire(placeOf(signal));
        }
        return fired;
    }
    static SignalQueue::Place placeOf(Ref signal) { return numberOf(signal) + 1000; }

    void add(LinxRef reference, uint64_t deadline, uint32_t signal) { timers.add(reference, deadline, Ref{signal}); }
    void received(uint32_t signal) { timers.received(Ref{signal}); }

    uint32_t cancel(LinxRef reference) {
        const Timers::Cancelled cancelled = timers.cancel(reference);
        hadFired = cancelled.hadFired;
        if (hadFired) {
            EXPECT_EQ(cancelled.place, placeOf(cancelled.signal));
        }
        return numberOf(cancelled.signal);
    }

    Timers timers;
    bool hadFired = false;
};

TEST_F(TimersTest, TimeOutsFireInTheOrderOfTheirDeadlines) {
    add(1, 300, 11);
    add(2, 100, 12);
    add(3, 200, 13);
    EXPECT_EQ(timers.earliest(), 100u);
    EXPECT_EQ(fireAll(99), std::vector<uint32_t>());
    EXPECT_EQ(fireAll(200), (std::vector<uint32_t>{12, 13}));
    EXPECT_EQ(timers.earliest(), 300u);
    EXPECT_EQ(fireAll(1000), std::vector<uint32_t>{11});
    EXPECT_EQ(timers.earliest(), Timers::never);
}

TEST_F(TimersTest, EqualDeadlinesFireInTheOrderOfTheirRequests) {
    for (LinxRef reference = 1; reference <= 5; ++reference) add(reference, 100, reference + 10);
    EXPECT_EQ(fireAll(100), (std::vector<uint32_t>{11, 12, 13, 14, 15}));
}

TEST_F(TimersTest, AWaitingTimeOutIsTakenBackOnce) {
    add(1, 100, 11);
    add(2, 100, 12);
    add(3, 100, 13);
    EXPECT_EQ(cancel(2), 12u);
    EXPECT_FALSE(hadFired);
    EXPECT_EQ(cancel(2), 0u);
    EXPECT_EQ(fireAll(100), (std::vector<uint32_t>{11, 13}));
}

TEST_F(TimersTest, AFiredTimeOutIsTakenBackUntilItIsReceived) {
    add(1, 100, 11);
    add(2, 100, 12);
    fireAll(100);
    EXPECT_EQ(cancel(1), 11u);
    EXPECT_TRUE(hadFired);
    EXPECT_EQ(cancel(1), 0u);
    received(12);
    EXPECT_EQ(cancel(2), 0u);
}

TEST_F(TimersTest, AnUnknownReferenceIsNone) {
    add(1, 100, 11);
    EXPECT_EQ(cancel(7), 0u);
    EXPECT_EQ(cancel(0), 0u);
    EXPECT_EQ(timers.earliest(), 100u);
}

TEST_F(TimersTest, WhatHasNotFiredCanBeTakenAtTheEnd) {
    add(1, 100, 11);
    add(2, 200, 12);
    add(3, 300, 13);
    EXPECT_EQ(fireAll(100), std::vector<uint32_t>{11});
    EXPECT_EQ(timers.takeAny(), Ref{12});
    EXPECT_EQ(timers.takeAny(), Ref{13});
    EXPECT_EQ(timers.takeAny(), Ref{0});
    EXPECT_EQ(cancel(2), 0u);
}

TEST_F(TimersTest, AReferenceIsKnownUntilItsSignalIsReceivedOrTakenBack) {
    for (LinxRef reference = 1; reference <= 3; ++reference) add(reference, 100, reference + 10);
    add(4, 200, 14);
    received(11);
    EXPECT_TRUE(timers.knows(1)) << "it has not fired";
    fireAll(100);
    received(14);
    received(11);
    cancel(2);
    cancel(4);
    for (const LinxRef gone : {1u, 2u, 4u}) EXPECT_FALSE(timers.knows(gone)) << gone;
    EXPECT_TRUE(timers.knows(3));
    EXPECT_FALSE(timers.idle());
    received(13);
    EXPECT_TRUE(timers.idle());
}

TEST_F(TimersTest, ReferencesGoRoundPastZeroAndThoseInUse) {
    EXPECT_EQ(timers.referenceAfter(0), 1u);
    EXPECT_EQ(timers.referenceAfter(~0u), 1u);
    add(1, 100, 11);
    add(2, 200, 12);
    add(4, 200, 14);
    EXPECT_EQ(fireAll(100), std::vector<uint32_t>{11});
    EXPECT_EQ(timers.referenceAfter(~0u), 3u);
    EXPECT_EQ(timers.referenceAfter(3), 5u);
    received(11);
    EXPECT_EQ(timers.referenceAfter(~0u), 1u);
    cancel(2);
    EXPECT_EQ(timers.referenceAfter(1), 2u);
}

/// Each of these steps would need ten thousand million, were one of the operations to look through all that have
/// fired.
TEST_F(TimersTest, AHundredThousandThatHaveFiredDoNotGetInTheWay) {
    constexpr uint32_t count = 100000;
    for (LinxRef reference = 1; reference <= 2 * count; ++reference) add(reference, 100, reference);
    ASSERT_EQ(fireAll(100).size(), 2 * count);
    for (LinxRef reference = 1; reference <= count; ++reference) ASSERT_TRUE(timers.knows(reference));
    for (LinxRef reference = 1; reference <= count; ++reference) ASSERT_EQ(cancel(reference), reference);
    for (uint32_t signal = 2 * count; signal > count; --signal) received(signal);
    EXPECT_TRUE(timers.idle());
}

TEST_F(TimersTest, TheDescriptorIsReadableOnceTheEarliestDeadlineHasPassed) {
    ASSERT_NE(timers.open(), -1);
    add(1, uint64_t{1} << 62, 11);
    EXPECT_FALSE(isReadable(timers.descriptor()));
    add(2, 0, 12);
    EXPECT_TRUE(isReadable(timers.descriptor(), -1));
    EXPECT_EQ(fireAll(0), std::vector<uint32_t>{12});
    timers.arm();
    EXPECT_FALSE(isReadable(timers.descriptor()));
    add(3, 0, 13);
    EXPECT_TRUE(isReadable(timers.descriptor(), -1));
    EXPECT_EQ(cancel(3), 13u);
    EXPECT_FALSE(isReadable(timers.descriptor()));
}

TEST_F(TimersTest, TheKernelIsAskedAgainOnlyForAnEarlierDeadline) {
    int asked = 0;
    linxtest::interposed::atArm = [&] { ++asked; };
    ASSERT_NE(timers.open(), -1);
    add(1, 500, 11);
    EXPECT_EQ(asked, 1);
    add(2, 600, 12);
    add(3, 500, 13);
    EXPECT_EQ(asked, 1);
    add(4, 400, 14);
    EXPECT_EQ(asked, 2);
    linxtest::interposed::reset();
}

}  // namespace
}  // namespace linx
