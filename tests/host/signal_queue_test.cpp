#include "host/endpoint/signal_queue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <optional>
#include <random>

namespace linx {
namespace {

constexpr uint32_t any[] = {0};

class SignalQueueTest : public ::testing::Test {
protected:
    /// Each signal is given the size class that its number tells, so that it can be asked for when it is taken.
    static SignalQueue::Signal signal(uint32_t ref) { return {Ref{ref}, SizeClassId{ref % sizeClassCount}}; }
    static uint32_t refOf(SignalQueue::Signal taken) {
        EXPECT_EQ(taken.sizeClass, signal(numberOf(taken.ref)).sizeClass);
        return numberOf(taken.ref);
    }
    void append(uint32_t ref, uint32_t number) {
        queue.reserve(1);
        queue.append(signal(ref), number);
    }
    SignalQueue::Place appendRemovable(uint32_t ref, uint32_t number) {
        return queue.appendRemovable(signal(ref), number);
    }
    uint32_t take(const std::vector<uint32_t>& numbers) {
        std::vector<uint32_t> selection = {static_cast<uint32_t>(numbers.size())};
        selection.insert(selection.end(), numbers.begin(), numbers.end());
        return refOf(queue.take(selection.data()));
    }

    SignalQueue queue;
};

TEST_F(SignalQueueTest, AnEmptyQueueGivesNothing) {
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(refOf(queue.take(any)), 0u);
    EXPECT_EQ(take({1, 2}), 0u);
    EXPECT_FALSE(queue.remove(Ref{1}, 0));
    EXPECT_FALSE(queue.remove(Ref{0}, 0));
}

TEST_F(SignalQueueTest, SignalsOfAnyNumberComeInTheOrderOfTheirArrival) {
    for (uint32_t ref = 1; ref <= 100; ++ref) append(ref, ref % 7);
    for (uint32_t ref = 1; ref <= 100; ++ref) EXPECT_EQ(refOf(queue.take(any)), ref);
    EXPECT_TRUE(queue.empty());
}

TEST_F(SignalQueueTest, AmongSeveralNumbersTheOldestComesFirst) {
    append(1, 10);
    append(2, 30);
    append(3, 20);
    append(4, 30);
    append(5, 20);
    EXPECT_EQ(take({20, 30}), 2u);
    EXPECT_EQ(take({30, 20}), 3u);
    append(6, 20);
    EXPECT_EQ(take({20, 30}), 4u);
    EXPECT_EQ(take({30, 20, 99}), 5u);
    EXPECT_EQ(take({30}), 0u);
    EXPECT_EQ(take({20}), 6u);
    EXPECT_EQ(refOf(queue.take(any)), 1u);
}

TEST_F(SignalQueueTest, WhatASelectionPassedOverKeepsItsPlace) {
    append(1, 10);
    append(2, 20);
    append(3, 10);
    EXPECT_EQ(take({99}), 0u);
    append(4, 20);
    EXPECT_EQ(refOf(queue.take(any)), 1u);
    EXPECT_EQ(refOf(queue.take(any)), 2u);
    EXPECT_EQ(refOf(queue.take(any)), 3u);
    EXPECT_EQ(refOf(queue.take(any)), 4u);
}

TEST_F(SignalQueueTest, ANumberNamedTwiceIsNoTrouble) {
    append(1, 10);
    append(2, 10);
    EXPECT_EQ(take({10, 10}), 1u);
    EXPECT_EQ(take({10, 10}), 2u);
    EXPECT_EQ(take({10, 10}), 0u);
}

TEST_F(SignalQueueTest, AMailboxGivesItsNewestFirst) {
    append(1, 1);
    append(4, 1);
    append(3, 1);
    append(2, 1);
    queue.reverseLast(3);
    for (uint32_t ref = 1; ref <= 4; ++ref) EXPECT_EQ(refOf(queue.take(any)), ref);
}

/// A queue that passed over the unrelated signals each time would need ten thousand million steps here.
TEST_F(SignalQueueTest, AHundredThousandUnrelatedSignalsDoNotGetInTheWay) {
    constexpr uint32_t count = 100000;
    for (uint32_t ref = 1; ref <= count; ++ref) append(ref, ref % 1000);
    for (uint32_t i = 0; i < count; ++i) {
        append(count + 1 + i, 5000);
        ASSERT_EQ(take({5000}), count + 1 + i);
    }
    for (uint32_t ref = 1; ref <= count; ++ref) ASSERT_EQ(refOf(queue.take(any)), ref);
}

TEST_F(SignalQueueTest, ASignalCanBeTakenOutOfAnyPlace) {
    for (const uint32_t removed : {1u, 2u, 3u, 4u, 5u}) {
        SignalQueue::Place place = 0;
        for (uint32_t ref = 1; ref <= 5; ++ref) {
            if (ref == removed) {
                place = appendRemovable(ref, ref % 2);
            } else {
                append(ref, ref % 2);
            }
        }
        EXPECT_FALSE(queue.remove(Ref{removed}, place + 100));
        EXPECT_FALSE(queue.remove(Ref{6}, place));
        EXPECT_TRUE(queue.remove(Ref{removed}, place));
        EXPECT_FALSE(queue.remove(Ref{removed}, place));
        EXPECT_EQ(queue.size(), 4u);
        append(6, 1);
        for (uint32_t ref = 1; ref <= 6; ++ref) {
            if (ref != removed) {
                EXPECT_EQ(refOf(queue.take(any)), ref);
            }
        }
        EXPECT_TRUE(queue.empty());
    }
}

TEST_F(SignalQueueTest, WhatWasTakenIsNotTakenOutOfItsPlace) {
    const SignalQueue::Place place = appendRemovable(1, 10);
    EXPECT_EQ(refOf(queue.take(any)), 1u);
    EXPECT_FALSE(queue.remove(Ref{1}, place));
    append(2, 10);
    EXPECT_EQ(take({20}), 0u);  // and goes into the same place
    EXPECT_FALSE(queue.remove(Ref{1}, place));
    EXPECT_EQ(take({10}), 2u);
}

/// A queue that looked for the signals would need ten thousand million steps here.
TEST_F(SignalQueueTest, AHundredThousandSignalsDoNotGetInTheWayOfWhatIsTakenOut) {
    constexpr uint32_t count = 100000;
    std::vector<SignalQueue::Place> places;
    for (uint32_t ref = 1; ref <= count; ++ref) append(ref, 10);
    for (uint32_t ref = count + 1; ref <= 2 * count; ++ref) places.push_back(appendRemovable(ref, 10));
    for (uint32_t ref = 2 * count; ref > count; --ref) ASSERT_TRUE(queue.remove(Ref{ref}, places[ref - count - 1]));
    for (uint32_t ref = 1; ref <= count; ++ref) ASSERT_EQ(refOf(queue.take(any)), ref);
    EXPECT_TRUE(queue.empty());
}

size_t residentBytes() {
    size_t total = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(SignalQueueTest, AQueueThatNeverRunsEmptyStaysSmall) {
    constexpr uint32_t mebibyte = 1u << 20;
    append(1, 10);
    const size_t before = residentBytes();
    for (uint32_t ref = 2; ref < 4 * mebibyte; ++ref) {
        append(ref, ref % 2 == 0 ? 10 : 20);
        if (ref % 65536 == 0) {
            EXPECT_EQ(take({99}), 0u);  // now and then something goes through the number queues
        }
        ASSERT_NE(refOf(queue.take(any)), 0u);
        ASSERT_EQ(queue.size(), 1u);
    }
    EXPECT_LT(residentBytes(), before + 8 * mebibyte);
}

/// Thousands of seeded operations beside a plain list that does the same in the simplest way.
TEST_F(SignalQueueTest, WhateverTheInterleavingItBehavesLikeAPlainList) {
    struct Queued {
        uint32_t ref;
        uint32_t number;
        std::optional<SignalQueue::Place> place;
    };
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        const auto upTo = [&](uint32_t most) { return static_cast<uint32_t>(random() % (most + 1)); };
        std::list<Queued> model;
        SignalQueue real;
        uint32_t next = 1;
        for (int step = 0; step < 3000; ++step) {
            switch (upTo(5)) {
                case 0: {  // a mailbox is taken
                    const uint32_t count = upTo(4);
                    real.reserve(count);
                    for (uint32_t i = count; i-- > 0;) real.append(signal(next + i), (next + i) * 7 % 5);
                    real.reverseLast(count);
                    for (uint32_t i = 0; i < count; ++i) model.push_back({next + i, (next + i) * 7 % 5, {}});
                    next += count;
                    break;
                }
                case 1:
                    model.push_back({next, next * 7 % 5, {}});
                    if (upTo(1) == 0) {
                        real.reserve(1);
                        real.append(signal(next), next * 7 % 5);
                    } else {
                        model.back().place = real.appendRemovable(signal(next), next * 7 % 5);
                    }
                    ++next;
                    break;
                case 2: {
                    const auto victim = std::next(model.begin(), upTo(static_cast<uint32_t>(model.size())));
                    if (victim == model.end() || !victim->place) {
                        ASSERT_FALSE(real.remove(Ref{next}, upTo(4)));
                    } else {
                        ASSERT_TRUE(real.remove(Ref{victim->ref}, *victim->place));
                        model.erase(victim);
                    }
                    break;
                }
                case 3: {
                    const uint32_t expected = model.empty() ? 0 : model.front().ref;
                    const bool plain = real.hasSeveralArrivals();
                    ASSERT_EQ(refOf(plain && upTo(1) == 0 ? real.takeArrival() : real.take(any)), expected);
                    if (!model.empty()) model.pop_front();
                    break;
                }
                default: {
                    const uint32_t selection[] = {2, upTo(5), upTo(5)};
                    const auto found = std::find_if(model.begin(), model.end(), [&](const Queued& queued) {
                        return queued.number == selection[1] || queued.number == selection[2];
                    });
                    ASSERT_EQ(refOf(real.take(selection)), found == model.end() ? 0 : found->ref);
                    if (found != model.end()) model.erase(found);
                }
            }
            ASSERT_EQ(real.size(), model.size());
            ASSERT_EQ(real.empty(), model.empty());
        }
    }
}

}  // namespace
}  // namespace linx
