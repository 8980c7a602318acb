#include "host/arena/spid.h"

#include <gtest/gtest.h>

namespace linx {
namespace {

TEST(Spids, ASpidIsNeverZero) {
    for (uint32_t index = 1; index < slotCount; ++index) {
        ASSERT_NE(makeSpid(SlotIndex{index}, 0), Spid::none);
        ASSERT_NE(makeSpid(SlotIndex{index}, generationMask + 1), Spid::none);
    }
}

TEST(Spids, IndexAndGenerationComeBackAsTheyWentIn) {
    for (const uint32_t index : {1u, 2u, 4095u, 4096u, slotCount - 1}) {
        for (const uint32_t generation : {0u, 1u, 65535u, 65536u, generationMask}) {
            const Spid spid = makeSpid(SlotIndex{index}, generation);
            EXPECT_TRUE(isSpid(spid));
            EXPECT_EQ(indexOf(spid), SlotIndex{index});
            EXPECT_EQ(generationOf(spid), generation);
        }
    }
}

TEST(Spids, TheGenerationWrapsAndLeavesTheUpperBitsFree) {
    EXPECT_EQ(makeSpid(SlotIndex{7}, generationMask + 1), makeSpid(SlotIndex{7}, 0));
    EXPECT_EQ(numberOf(makeSpid(SlotIndex{slotCount - 1}, generationMask)) & ~spidMask, 0u);
}

TEST(Spids, WhatHasNoIndexOrUpperBitsIsNoSpid) {
    EXPECT_FALSE(isSpid(Spid::none));
    EXPECT_FALSE(isSpid(makeSpid(SlotIndex{0}, 5)));
    EXPECT_FALSE(isSpid(Spid{numberOf(makeSpid(SlotIndex{1}, 1)) | 1u << 30}));
    EXPECT_FALSE(isSpid(Spid{numberOf(makeSpid(SlotIndex{1}, 1)) | 1u << 31}));
    EXPECT_FALSE(isSpid(Spid{~0u}));
}

TEST(Spids, AnEarlierIncarnationIsTheOneWithinTheHalfCircleBehind) {
    const auto spid = [](uint32_t generation) { return makeSpid(SlotIndex{3}, generation); };
    EXPECT_TRUE(isEarlier(spid(4), spid(5)));
    EXPECT_FALSE(isEarlier(spid(5), spid(5)));
    EXPECT_FALSE(isEarlier(spid(6), spid(5)));
    EXPECT_TRUE(isEarlier(spid(generationMask), spid(0)));
    EXPECT_FALSE(isEarlier(spid(0), spid(generationMask)));
    EXPECT_TRUE(isEarlier(spid(0), spid(generationMask / 2)));
    EXPECT_FALSE(isEarlier(spid(0), spid(generationMask / 2 + 1)));
}

}  // namespace
}  // namespace linx
