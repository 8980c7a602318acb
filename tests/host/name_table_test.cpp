#include "host/arena/name_table.h"

#include <gtest/gtest.h>

#include <unordered_map>

#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::layOpenSlot;
using linxtest::MemoryArena;
using linxtest::nameOf;
using linxtest::namesOfOneBucket;

/// Two names whose hashes are the same in every bit.
std::pair<std::string, std::string> namesOfOneHash() {
    std::unordered_map<uint32_t, std::string> seen;
    for (uint32_t i = 0;; ++i) {
        const std::string name = std::to_string(i * 2654435761u) + "x" + std::to_string(i);
        const auto [place, isNew] = seen.insert({nameOf(name).hash(), name});
        if (!isNew) return {place->second, name};
    }
}

class NameTableTest : public ::testing::Test {
protected:
    MemoryArena memory;
    Arena arena = memory.arena();
};

TEST_F(NameTableTest, AnOpenEndpointIsFoundByItsName) {
    const Spid spid = layOpenSlot(arena, SlotIndex{7}, "EncodeCtrl");
    EXPECT_EQ(findName(arena, nameOf("EncodeCtrl")), spid);
    EXPECT_EQ(findName(arena, nameOf("EncodeCtr")), Spid::none);
    EXPECT_EQ(findName(arena, nameOf("EncodeCtrl1")), Spid::none);
    EXPECT_EQ(findName(arena, nameOf("encodeCtrl")), Spid::none);
}

TEST_F(NameTableTest, NamesOfEveryLengthAreTold) {
    for (uint32_t length = 1; length <= maxNameLength; ++length) {
        layOpenSlot(arena, SlotIndex{length}, std::string(length, 'n'));
    }
    for (uint32_t length = 1; length <= maxNameLength; ++length) {
        ASSERT_EQ(findName(arena, nameOf(std::string(length, 'n'))), makeSpid(SlotIndex{length}, 1));
    }
}

TEST_F(NameTableTest, AnEndedEndpointIsNotFound) {
    const Spid spid = layOpenSlot(arena, SlotIndex{7}, "EncodeCtrl");
    arena.slot(SlotIndex{7}).life.storeRelaxed(closedAs(spid));
    EXPECT_EQ(findName(arena, nameOf("EncodeCtrl")), Spid::none);
}

TEST_F(NameTableTest, AnySlotOfAChainCanBeTakenOut) {
    const std::vector<std::string> names = namesOfOneBucket(5);
    for (size_t removed = 0; removed < names.size(); ++removed) {
        for (uint32_t i = 0; i < names.size(); ++i) layOpenSlot(arena, SlotIndex{i + 1}, names[i]);
        removeName(arena, SlotIndex{static_cast<uint32_t>(removed) + 1});
        for (uint32_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ(findName(arena, nameOf(names[i])), i == removed ? Spid::none : makeSpid(SlotIndex{i + 1}, 1));
        }
        for (uint32_t i = 0; i < names.size(); ++i) removeName(arena, SlotIndex{i + 1});
        EXPECT_EQ(arena.bucket(nameOf(names[0]).hash()).loadRelaxed(), SlotIndex::none);
    }
}

TEST_F(NameTableTest, NamesOfOneHashAreToldApart) {
    const auto [one, other] = namesOfOneHash();
    ASSERT_EQ(nameOf(one).hash(), nameOf(other).hash());
    const Spid first = layOpenSlot(arena, SlotIndex{1}, one);
    EXPECT_EQ(findName(arena, nameOf(other)), Spid::none);
    const Spid second = layOpenSlot(arena, SlotIndex{2}, other);
    EXPECT_EQ(findName(arena, nameOf(one)), first);
    EXPECT_EQ(findName(arena, nameOf(other)), second);
}

TEST_F(NameTableTest, CyclicLinksEndTheSearch) {
    const std::vector<std::string> names = namesOfOneBucket(3);
    layOpenSlot(arena, SlotIndex{1}, names[0]);
    layOpenSlot(arena, SlotIndex{2}, names[1]);
    arena.slot(SlotIndex{1}).nextInBucket.storeRelaxed(SlotIndex{2});
    EXPECT_EQ(findName(arena, nameOf(names[2])), Spid::none);
    EXPECT_EQ(findName(arena, nameOf(names[0])), makeSpid(SlotIndex{1}, 1));
    layOpenSlot(arena, SlotIndex{3}, names[2]);
    removeName(arena, SlotIndex{4});
    arena.slot(SlotIndex{3}).nextInBucket.storeRelaxed(SlotIndex{3});
    arena.slot(SlotIndex{4}).nameHash.storeRelaxed(nameOf(names[0]).hash());
    removeName(arena, SlotIndex{4});
}

TEST_F(NameTableTest, LinksOutOfRangeEndTheSearch) {
    const std::vector<std::string> names = namesOfOneBucket(2);
    layOpenSlot(arena, SlotIndex{1}, names[0]);
    for (const uint32_t link : {slotCount, slotCount + 1, 0x80000000u, ~0u}) {
        arena.slot(SlotIndex{1}).nextInBucket.storeRelaxed(SlotIndex{link});
        EXPECT_EQ(findName(arena, nameOf(names[1])), Spid::none);
        arena.slot(SlotIndex{2}).nameHash.storeRelaxed(nameOf(names[1]).hash());
        removeName(arena, SlotIndex{2});
        EXPECT_EQ(findName(arena, nameOf(names[0])), makeSpid(SlotIndex{1}, 1));
    }
}

TEST_F(NameTableTest, ASlotWhoseLifeNamesAnotherIndexIsNotFound) {
    layOpenSlot(arena, SlotIndex{7}, "EncodeCtrl");
    arena.slot(SlotIndex{7}).life.storeRelaxed(openAs(makeSpid(SlotIndex{8}, 1)));
    EXPECT_EQ(findName(arena, nameOf("EncodeCtrl")), Spid::none);
}

TEST_F(NameTableTest, ASlotWhoseLifeIsGarbledIsNotFoundForItCouldNotBeReaped) {
    const Spid spid = layOpenSlot(arena, SlotIndex{7}, "EncodeCtrl");
    arena.slot(SlotIndex{7}).life.storeRelaxed(LifeWord{numberOf(spid) | 3u << 30});
    EXPECT_EQ(findName(arena, nameOf("EncodeCtrl")), Spid::none);
    arena.slot(SlotIndex{7}).life.storeRelaxed(openAs(spid));
    arena.header().slotsUsed.storeRelaxed(6);
    EXPECT_EQ(findName(arena, nameOf("EncodeCtrl")), Spid::none);
}

TEST_F(NameTableTest, TheNameOfASpidIsKnownUntilItsSlotIsUsedAgain) {
    const Spid spid = layOpenSlot(arena, SlotIndex{7}, "EncodeCtrl");
    Name name;
    ASSERT_TRUE(nameOfSpid(arena, spid, name));
    EXPECT_STREQ(name.text(), "EncodeCtrl");
    EXPECT_EQ(name.hash(), nameOf("EncodeCtrl").hash());
    arena.slot(SlotIndex{7}).life.storeRelaxed(closedAs(spid));
    ASSERT_TRUE(nameOfSpid(arena, spid, name));
    EXPECT_EQ(name.length(), 10u);
    const Spid next = layOpenSlot(arena, SlotIndex{7}, "Next", 2);
    EXPECT_FALSE(nameOfSpid(arena, spid, name));
    ASSERT_TRUE(nameOfSpid(arena, next, name));
    EXPECT_STREQ(name.text(), "Next");
}

TEST_F(NameTableTest, WhatIsNoSpidHasNoName) {
    layOpenSlot(arena, SlotIndex{7}, "EncodeCtrl");
    Name name;
    for (const Spid spid : {Spid::none, makeSpid(SlotIndex{0}, 1), makeSpid(SlotIndex{7}, 0),
                            makeSpid(SlotIndex{7}, 2), makeSpid(SlotIndex{8}, 0), Spid{~0u}}) {
        EXPECT_FALSE(nameOfSpid(arena, spid, name)) << numberOf(spid);
    }
}

TEST_F(NameTableTest, AGarbledLengthDoesNotReachBeyondTheName) {
    const Spid spid = layOpenSlot(arena, SlotIndex{7}, std::string(maxNameLength, 'n'));
    arena.slot(SlotIndex{7}).nameLength.storeRelaxed(~0u);
    Name name;
    ASSERT_TRUE(nameOfSpid(arena, spid, name));
    EXPECT_EQ(name.length(), maxNameLength);
    EXPECT_EQ(std::strlen(name.text()), maxNameLength);
    EXPECT_EQ(findName(arena, nameOf(std::string(maxNameLength, 'n'))), Spid::none);
}

}  // namespace
}  // namespace linx
