#include "host/arena/slot_table.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <vector>

#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::MemoryArena;

class SlotTableTest : public ::testing::Test {
protected:
    /// As if every slot had been opened once and were open still.
    void openAll() const {
        arena.header().slotsUsed.storeRelaxed(slotCount - 1);
        for (uint32_t i = 1; i < slotCount; ++i) {
            arena.slot(SlotIndex{i}).life.storeRelaxed(openAs(makeSpid(SlotIndex{i}, 1)));
        }
    }

    void end(uint32_t number) const {
        const SlotIndex index{number};
        arena.slot(index).life.storeRelaxed(closedAs(makeSpid(index, 1)));
        quarantine(arena, index);
    }

    uint32_t take() const { return numberOf(takeSlot(arena)); }

    /// Takes slots until there is none.
    std::vector<uint32_t> takeAll() const {
        std::vector<uint32_t> taken;
        while (const uint32_t index = take()) taken.push_back(index);
        return taken;
    }

    MemoryArena memory;
    const Arena arena = memory.arena();
};

TEST_F(SlotTableTest, FreshSlotsComeFirstAndSlotZeroNever) {
    EXPECT_EQ(take(), 1u);
    end(1);
    EXPECT_EQ(take(), 2u);
    EXPECT_EQ(take(), 3u);
    arena.header().slotsUsed.storeRelaxed(slotCount - 1);
    EXPECT_EQ(take(), 1u);
}

TEST_F(SlotTableTest, SlotsComeBackFromQuarantineTheOldestFirst) {
    openAll();
    for (const uint32_t index : {5u, 3u, 9u, 1u}) end(index);
    EXPECT_EQ(takeAll(), (std::vector<uint32_t>{5, 3, 9, 1}));
    end(4);
    end(2);
    EXPECT_EQ(takeAll(), (std::vector<uint32_t>{4, 2}));
}

TEST_F(SlotTableTest, WhenAllAreOpenThereIsNoneLeft) {
    openAll();
    errno = 0;
    EXPECT_EQ(take(), 0u);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(SlotTableTest, EverySlotButZeroCanBeTakenOnceAndNoMore) {
    const std::vector<uint32_t> taken = takeAll();
    ASSERT_EQ(taken.size(), slotCount - 1);
    for (uint32_t i = 0; i < taken.size(); ++i) ASSERT_EQ(taken[i], i + 1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(SlotTableTest, AFileWithoutMemoryIsAnError) {
    errno = 0;
    const Arena withoutFile = memory.arena(linxtest::noFile);
    memory.cutTo(slotsOffset);
    EXPECT_EQ(takeSlot(withoutFile), SlotIndex::none);
    EXPECT_EQ(errno, ENOMEM);
    memory.makeWhole();
    EXPECT_EQ(take(), 1u);
}

TEST_F(SlotTableTest, TheOrderIsMadeAnewFromTheSlots) {
    openAll();
    const std::vector<uint32_t> order = {5, 3, 9, 1, 8000, 17};
    for (const uint32_t index : order) end(index);
    std::mt19937 random(7);
    for (int round = 0; round < 10; ++round) {
        for (const uint32_t index : order)
            arena.slot(SlotIndex{index}).nextInQuarantine.storeRelaxed(static_cast<SlotIndex>(random()));
        arena.header().quarantineHead.storeRelaxed(static_cast<SlotIndex>(random()));
        arena.header().quarantineTail.storeRelaxed(static_cast<SlotIndex>(random()));
        rebuildQuarantine(arena);
        ASSERT_EQ(takeAll(), order);
        rebuildQuarantine(arena);
    }
    end(100);
    std::vector<uint32_t> longer = order;
    longer.push_back(100);
    EXPECT_EQ(takeAll(), longer);
}

TEST_F(SlotTableTest, TheOrderSurvivesTheStampsWrapping) {
    openAll();
    arena.header().quarantined.storeRelaxed(~0u - 2);
    const std::vector<uint32_t> order = {5, 3, 9, 1, 7};
    for (const uint32_t index : order) end(index);
    rebuildQuarantine(arena);
    EXPECT_EQ(takeAll(), order);
}

TEST_F(SlotTableTest, WithoutEndedSlotsTheQuarantineIsEmpty) {
    openAll();
    arena.header().quarantineHead.storeRelaxed(SlotIndex{4});
    arena.header().quarantineTail.storeRelaxed(SlotIndex{4});
    rebuildQuarantine(arena);
    EXPECT_EQ(arena.header().quarantineHead.loadRelaxed(), SlotIndex::none);
    EXPECT_EQ(arena.header().quarantineTail.loadRelaxed(), SlotIndex::none);
    EXPECT_TRUE(takeAll().empty());
}

TEST_F(SlotTableTest, LinksOutOfRangeTakeNobodyOutside) {
    openAll();
    end(1);
    end(2);
    arena.slot(SlotIndex{1}).nextInQuarantine.storeRelaxed(SlotIndex{~0u});
    EXPECT_EQ(take(), 1u);
    EXPECT_EQ(take(), 0u);
    arena.header().quarantineTail.storeRelaxed(SlotIndex{~0u});
    quarantine(arena, SlotIndex{2});
    EXPECT_EQ(take(), 2u);
}

TEST_F(SlotTableTest, AGarbledCountDoesNotGiveOutSlotZero) {
    arena.header().slotsUsed.storeRelaxed(~0u);
    EXPECT_EQ(take(), 0u);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(SlotTableTest, ASpidIsKnownOnceItExistedAndOpenWhileItIs) {
    arena.header().slotsUsed.storeRelaxed(4);
    arena.slot(SlotIndex{3}).life.storeRelaxed(openAs(makeSpid(SlotIndex{3}, 5)));
    EXPECT_TRUE(isOpen(arena, makeSpid(SlotIndex{3}, 5)));
    EXPECT_FALSE(isOpen(arena, makeSpid(SlotIndex{3}, 4)));
    EXPECT_TRUE(everExisted(arena, makeSpid(SlotIndex{3}, 5)));
    EXPECT_TRUE(everExisted(arena, makeSpid(SlotIndex{3}, 4)));
    EXPECT_FALSE(everExisted(arena, makeSpid(SlotIndex{3}, 6)));
    EXPECT_FALSE(everExisted(arena, makeSpid(SlotIndex{4}, 0)));
    EXPECT_FALSE(everExisted(arena, makeSpid(SlotIndex{4}, generationMask)));  // just before a slot's first
    EXPECT_FALSE(everExisted(arena, Spid::none));
    EXPECT_FALSE(everExisted(arena, Spid{numberOf(makeSpid(SlotIndex{3}, 5)) | 1u << 31}));
    arena.slot(SlotIndex{3}).life.storeRelaxed(closedAs(makeSpid(SlotIndex{3}, 5)));
    EXPECT_FALSE(isOpen(arena, makeSpid(SlotIndex{3}, 5)));
    EXPECT_TRUE(everExisted(arena, makeSpid(SlotIndex{3}, 5)));
}

}  // namespace
}  // namespace linx
