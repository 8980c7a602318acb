// What others do between any two looks of one who takes no lock.

#include "tests/ambush/ambush.h"

#include <gtest/gtest.h>

#include "host/arena/name_table.h"
#include "host/mailbox/take_all_stack.h"
#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::layOpenSlot;
using linxtest::MemoryArena;
using linxtest::nameOf;

/// Has `change` come before the first look of `look`, then before the second, and so on to the last, each time in a
/// scene that `arrange` makes anew; in the end it comes not at all. Returns before how many looks it came.
template <class Arrange, class Change, class Look>
uint32_t comeBetweenLooks(Arrange arrange, Change change, Look look) {
    for (uint32_t n = 1;; ++n) {
        SCOPED_TRACE(n);
        arrange();
        ambush::lay(n, change);
        look();
        if (ambush::lift() || testing::Test::HasFailure()) return n - 1;
    }
}

/// A slot that goes from one endpoint to the next, whose names lie in one bucket.
class ChangingHandsTest : public testing::Test {
protected:
    static constexpr SlotIndex index{5};
    static constexpr Spid earlier = makeSpid(index, 1);
    static constexpr Spid later = makeSpid(index, 2);

    void arrange() {
        arena.bucket(nameOf(names[0]).hash()).storeRelaxed(SlotIndex::none);
        layOpenSlot(arena, index, names[0]);
    }

    /// In the order in which endpoints end and open.
    void changeHands() {
        removeName(arena, index);
        arena.slot(index).life.storeRelease(closedAs(earlier));
        arena.slot(index).life.storeRelease(closedAs(later));
        layOpenSlot(arena, index, names[1], 2);
    }

    std::string nameOfEarlier() const {
        Name name;
        return nameOfSpid(arena, earlier, name) ? name.text() : "";
    }

    const MemoryArena memory;
    const Arena arena = memory.arena();
    const std::vector<std::string> names = linxtest::namesOfOneBucket(2);
};

TEST_F(ChangingHandsTest, ASpidIsNeverGivenTheNameOfTheSlotsNextUser) {
    const uint32_t looks =
        comeBetweenLooks([&] { arrange(); }, [&] { changeHands(); }, [&] { EXPECT_NE(names[1], nameOfEarlier()); });
    EXPECT_GT(looks, 4u);
    EXPECT_EQ(names[0], nameOfEarlier());
}

TEST_F(ChangingHandsTest, ANameIsNeverThatOfTheSlotsEarlierUser) {
    const uint32_t looks = comeBetweenLooks([&] { arrange(); }, [&] { changeHands(); },
                                            [&] { EXPECT_NE(earlier, findName(arena, nameOf(names[1]))); });
    EXPECT_GT(looks, 4u);
    EXPECT_EQ(earlier, findName(arena, nameOf(names[0])));
}

/// One who takes a stack while others get at it.
class TakingTest : public testing::Test {
protected:
    TakingTest() { memory.layRun(0, 0); }

    void push(uint32_t number) {
        const Ref ref = arena.refOfPage(PageIndex{0}) + number;
        stack::push(head, arena.blockAt(ref));
    }

    void arrange() {
        head.storeRelaxed(stack::headOf(stack::empty));
        claim.storeRelaxed(Ref::none);
        push(1);
    }

    const MemoryArena memory;
    const Arena arena = memory.arena();
    WordOf<StackHead> head{};
    WordOf<Ref> claim{};
};

TEST_F(TakingTest, WhatIsClaimedIsWhatIsTaken) {
    const uint32_t looks = comeBetweenLooks([&] { arrange(); }, [&] { push(2); },
                                            [&] {
                                                const Ref taken = stack::claimAll(head, claim, stack::empty);
                                                EXPECT_NE(taken, stack::empty);
                                                EXPECT_EQ(taken, claim.loadRelaxed());
                                            });
    EXPECT_GT(looks, 1u);
}

TEST_F(TakingTest, NothingStaysClaimedOfWhatSomebodyElseHasTaken) {
    for (const Ref leave : {stack::empty, stack::closed}) {
        const uint32_t looks =
            comeBetweenLooks([&] { arrange(); }, [&] { head.exchangeSeqCst(stack::headOf(stack::closed)); },
                             [&] {
                                 const Ref taken = stack::claimAll(head, claim, leave);
                                 EXPECT_EQ(taken, claim.loadRelaxed());
                             });
        EXPECT_GT(looks, 1u);
    }
}

}  // namespace
}  // namespace linx
