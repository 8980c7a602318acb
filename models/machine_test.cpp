// What the machine lets two or three threads see of each other, and that the explorer leaves none of it out.

#include <gtest/gtest.h>

#include <array>
#include <set>

#include "models/machine/explorer.h"
#include "models/machine/heap.h"
#include "models/machine/kernel.h"

namespace model {

std::string nameOfWord(const uint32_t* word) {
    return std::to_string(reinterpret_cast<uintptr_t>(word));
}

namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr auto acquire = std::memory_order_acquire;
constexpr auto release = std::memory_order_release;
constexpr auto seqCst = std::memory_order_seq_cst;

/// Two words, and what threads have seen of them.
class MachineTest : public testing::Test {
protected:
    using Body = std::function<void()>;

    /// Explores all that the threads can do. What they saw at the end of each execution is in `outcomes`.
    Result explore(const std::vector<Body>& bodies) {
        memory.cover(words.data(), sizeof words);
        Model model;
        model.play.threads = static_cast<unsigned>(bodies.size());
        model.play.mortal = 0;
        model.play.stoppable = 0;
        model.play.switches = unlimited;
        model.play.body = [&bodies](unsigned thread) { bodies[thread](); };
        model.play.nameOf = [](unsigned) { return "thread"; };
        model.play.maySleep = [](unsigned) { return false; };
        model.prepare = [this] {
            memory.forgetShared();
            words = {};
            for (uint32_t& value : seen) {
                value = 0;
                memory.keep(value);
            }
        };
        model.check = [this] {
            const HostHeap heap;
            outcomes.insert({seen[0], seen[1]});
        };
        Limits limits;
        limits.states = 100000;
        return exploreAll(model, limits);
    }

    bool saw(uint32_t first, uint32_t second) const { return outcomes.count({first, second}) != 0; }

    alignas(64) static inline std::array<uint32_t, 4> words;
    uint32_t& x = words[0];
    uint32_t& y = words[1];
    std::array<uint32_t, 2> seen;
    std::set<std::pair<uint32_t, uint32_t>> outcomes;
};

TEST_F(MachineTest, AStoreMayBeSeenAfterALaterLoadOfItsThread) {
    const Result result = explore({[&] {
                                       store(x, 1, release);
                                       seen[0] = load(y, acquire);
                                   },
                                   [&] {
                                       store(y, 1, release);
                                       seen[1] = load(x, acquire);
                                   }});
    EXPECT_TRUE(result.exhausted);
    EXPECT_TRUE(saw(0, 0) && saw(0, 1) && saw(1, 0) && saw(1, 1));
}

TEST_F(MachineTest, ASequentiallyConsistentStoreMayNot) {
    explore({[&] {
                 store(x, 1, seqCst);
                 seen[0] = load(y, seqCst);
             },
             [&] {
                 store(y, 1, seqCst);
                 seen[1] = load(x, seqCst);
             }});
    EXPECT_FALSE(saw(0, 0));
    EXPECT_TRUE(saw(0, 1) && saw(1, 0) && saw(1, 1));
}

TEST_F(MachineTest, WhatCameBeforeARelaxedStoreMayStayUnseen) {
    explore({[&] {
                 store(x, 1, relaxed);
                 store(y, 1, relaxed);
             },
             [&] {
                 seen[0] = load(y, acquire);
                 seen[1] = load(x, relaxed);
             }});
    EXPECT_TRUE(saw(1, 0));
}

TEST_F(MachineTest, WhatCameBeforeAReleaseIsSeenByWhoAcquiresAlsoThroughAnUpdate) {
    explore({[&] {
                 store(x, 1, relaxed);
                 store(y, 1, release);
             },
             [&] { add(y, 10, relaxed); },
             [&] {
                 seen[0] = load(y, acquire);
                 seen[1] = load(x, relaxed);
             }});
    EXPECT_TRUE(saw(11, 1) && saw(10, 0) && saw(1, 1));
    EXPECT_FALSE(saw(11, 0) || saw(1, 0));
}

TEST_F(MachineTest, AnExchangeThatFailsMayHaveReadWhatIsOld) {
    explore({[&] { store(x, 1, relaxed); },
             [&] {
                 seen[0] = load(x, relaxed);
                 uint32_t expected = 1;
                 seen[1] = compareExchange(x, expected, 2, seqCst, acquire) ? 1 : 0;
             }});
    EXPECT_TRUE(saw(0, 0) && saw(0, 1) && saw(1, 1));
    EXPECT_FALSE(saw(1, 0)) << "what a thread has seen it does not forget";
}

TEST_F(MachineTest, AThreadThatStoresWhatIsThereAlreadyStillComesToItsEnd) {
    const Result result = explore({[&] {
                                       load(x, relaxed);
                                       seen[0] = 1;
                                   },
                                   [&] {
                                       scheduler.call("waits", false, [&] { return seen[0] != 0; });
                                       for (int i = 0; i < 5; ++i) store(x, 1, release);
                                       seen[1] = 1;
                                   }});
    EXPECT_TRUE(result.exhausted);
    EXPECT_GT(result.completed, 0u);
}

/// Others can see it happen.
void step() {
    scheduler.call("steps", true, [] { return true; });
}

TEST_F(MachineTest, ASleepOfLimitedTimeEndsAlsoWithoutWhatItWaitsFor) {
    constexpr uint64_t deadline = 50;
    explore({[&] {
                 scheduler.sleep(
                     "sleeps", [&] { return seen[1] != 0; }, deadline);
                 const uint32_t woken = seen[1];
                 seen[0] = woken + (scheduler.timeOf(0) >= deadline ? 10 : 0);
             },
             [&] {
                 step();
                 seen[1] = 1;
             }});
    const std::set<std::pair<uint32_t, uint32_t>> wokenOrLate = {{1, 1}, {10, 1}};
    EXPECT_EQ(outcomes, wokenOrLate);
}

TEST_F(MachineTest, SleepsOfLimitedTimeHoldNobodyUpForEver) {
    const Result result = explore({[&] {
                                       while (seen[1] == 0) {
                                           scheduler.sleep(
                                               "sleeps", [&] { return seen[1] != 0; }, 1);
                                           ++seen[0];
                                       }
                                   },
                                   [&] {
                                       for (int i = 0; i < 3; ++i) step();
                                       seen[1] = 1;
                                   }});
    EXPECT_TRUE(result.exhausted) << result.violation;
    const std::set<std::pair<uint32_t, uint32_t>> onceMoreAtMost = {{1, 1}, {2, 1}};
    EXPECT_EQ(outcomes, onceMoreAtMost);
}

}  // namespace
}  // namespace model
