#include "host/arena/hunt_table.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::MemoryArena;
using linxtest::nameOf;
using linxtest::noFile;

class HuntTableTest : public ::testing::Test {
protected:
    int add(const std::string& name, uint32_t signal) const {
        return addHunt(arena, hunter, nameOf(name), Ref{signal});
    }
    std::vector<uint32_t> signals() const {
        std::vector<uint32_t> all;
        forEachHunt(arena, [&](Hunt& hunt) { all.push_back(numberOf(hunt.signal.loadRelaxed())); });
        return all;
    }

    const Spid hunter = makeSpid(SlotIndex{1}, 1);
    MemoryArena memory;
    const Arena arena = memory.arena();
};

TEST_F(HuntTableTest, AHuntKeepsItsNameItsHunterAndItsSignal) {
    ASSERT_EQ(add("absent", 77), 0);
    const Hunt& hunt = arena.hunt(0);
    EXPECT_EQ(hunt.hunter.loadRelaxed(), huntedBy(hunter));
    EXPECT_EQ(hunt.signal.loadRelaxed(), Ref{77});
    EXPECT_EQ(hunt.nameHash.loadRelaxed(), nameOf("absent").hash());
    EXPECT_TRUE(nameOf("absent").equals(hunt.name, hunt.nameLength.loadRelaxed()));
}

TEST_F(HuntTableTest, AClearedEntryIsUsedAgainBeforeAFreshOne) {
    for (uint32_t signal = 1; signal <= 4; ++signal) ASSERT_EQ(add("absent", signal), 0);
    clearHunt(arena.hunt(1));
    EXPECT_EQ(signals(), (std::vector<uint32_t>{1, 3, 4}));
    ASSERT_EQ(add("absent", 5), 0);
    EXPECT_EQ(signals(), (std::vector<uint32_t>{1, 5, 3, 4}));
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 4u);
}

TEST_F(HuntTableTest, TrimmingForgetsWhatIsUnusedAtTheEnd) {
    for (uint32_t signal = 1; signal <= 4; ++signal) ASSERT_EQ(add("absent", signal), 0);
    clearHunt(arena.hunt(0));
    trimHunts(arena);
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 4u);
    clearHunt(arena.hunt(3));
    clearHunt(arena.hunt(2));
    trimHunts(arena);
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 2u);
    clearHunt(arena.hunt(1));
    trimHunts(arena);
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 0u);
}

TEST_F(HuntTableTest, AFullTableTakesNothingMoreUntilOneIsCleared) {
    for (uint32_t signal = 1; signal <= huntCount; ++signal) {
        const Spid oneOfFour = makeSpid(SlotIndex{1 + signal % 4}, 1);
        ASSERT_EQ(addHunt(arena, oneOfFour, nameOf("absent"), Ref{signal}), 0);
    }
    const Spid another = makeSpid(SlotIndex{5}, 1);
    EXPECT_EQ(addHunt(arena, another, nameOf("absent"), Ref{5000}), ENOSPC);
    EXPECT_EQ(signals().size(), huntCount);
    clearHunt(arena.hunt(huntCount - 1));
    trimHunts(arena);
    EXPECT_EQ(addHunt(arena, another, nameOf("absent"), Ref{5000}), 0);
    EXPECT_EQ(signals().back(), 5000u);
}

TEST_F(HuntTableTest, NobodyTakesMoreThanAQuarterOfTheTable) {
    for (uint32_t signal = 1; signal <= huntsOfOne; ++signal) ASSERT_EQ(add("absent", signal), 0);
    EXPECT_EQ(add("absent", 5000), EDQUOT);
    EXPECT_EQ(addHunt(arena, makeSpid(SlotIndex{2}, 1), nameOf("absent"), Ref{5001}), 0);
    // Also one that is being answered counts, until it is cleared.
    Hunt& answering = arena.hunt(7);
    answering.hunter.storeRelaxed(answeredTo(hunter));
    EXPECT_EQ(add("absent", 5000), EDQUOT);
    clearHunt(answering);
    EXPECT_EQ(add("absent", 5000), 0);
    EXPECT_EQ(add("absent", 5002), EDQUOT);
}

TEST_F(HuntTableTest, AFileWithoutMemoryIsAnErrorAndLeavesNoEntry) {
    const Arena withoutFile = memory.arena(noFile);
    EXPECT_EQ(addHunt(withoutFile, hunter, nameOf("absent"), Ref{1}), ENOMEM);
    EXPECT_TRUE(signals().empty());
}

TEST_F(HuntTableTest, AGarbledCountDoesNotReachBeyondTheTable) {
    ASSERT_EQ(add("absent", 1), 0);
    arena.header().huntsUsed.storeRelaxed(~0u);
    EXPECT_EQ(signals(), (std::vector<uint32_t>{1}));
    EXPECT_EQ(add("absent", 2), 0);
    trimHunts(arena);
    EXPECT_EQ(arena.header().huntsUsed.loadRelaxed(), 2u);
}

}  // namespace
}  // namespace linx
