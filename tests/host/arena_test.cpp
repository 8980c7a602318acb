#include "host/arena/arena.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::MemoryArena;

class ArenaTest : public ::testing::Test {
protected:
    /// Whatever the arena's words say: a block that is found lies in the pool as a whole.
    void expectInsideOrNull(Ref ref) const {
        const BlockRef block = arena.blockAt(ref);
        if (!block) return;
        ASSERT_EQ(block.ref, ref);
        ASSERT_LT(block.sizeClass, sizeClassCount);
        const auto* start = reinterpret_cast<const char*>(block.block);
        ASSERT_EQ(start, memory.base() + size_t{numberOf(ref)} * lineBytes);
        ASSERT_GE(start, memory.base() + size_t{firstPoolPage(MemoryArena::pages)} * pageBytes);
        ASSERT_LE(start + size_t{linesOfClass(block.sizeClass)} * lineBytes, memory.base() + MemoryArena::bytes());
    }

    const LinxSignal* signalAt(size_t offset) const {
        return reinterpret_cast<const LinxSignal*>(reinterpret_cast<uintptr_t>(memory.base()) + offset);
    }

    MemoryArena memory;
    Arena arena = memory.arena();
};

TEST_F(ArenaTest, OnlyTheFirstLineOfABlockIsABlock) {
    for (uint32_t c = 0; c < sizeClassCount; ++c) {
        const SizeClass& sizeClass = sizeClasses[c];
        const Ref first = memory.layRun(3, c);
        for (uint32_t line = 0; line < sizeClass.pages * linesPerPage; ++line) {
            const bool starts = line % sizeClass.lines == 0 && line / sizeClass.lines < sizeClass.blocks;
            const BlockRef found = arena.blockAt(first + line);
            ASSERT_EQ(found.block != nullptr, starts) << "class " << c << " line " << line;
            if (starts) {
                ASSERT_EQ(found.sizeClass, c);
            }
        }
        for (uint32_t i = 0; i < sizeClass.pages; ++i) arena.pageEntry(PageIndex{3 + i}).storeRelaxed(0);
    }
}

TEST_F(ArenaTest, PagesThatAreNotLeasedHoldNoBlock) {
    memory.layRun(3, 0);
    for (uint32_t line = 0; line < linesPerPage; ++line) {
        EXPECT_EQ(arena.blockAt(arena.refOfPage(PageIndex{2}) + line).block, nullptr);
        EXPECT_EQ(arena.blockAt(arena.refOfPage(PageIndex{4}) + line).block, nullptr);
    }
}

TEST_F(ArenaTest, NoReferenceOutsideThePoolIsABlock) {
    for (uint32_t page = 0; page < MemoryArena::pages; ++page) memory.layRun(page, 0);
    const uint32_t first = numberOf(arena.refOfPage(PageIndex{0}));
    const uint32_t end = numberOf(arena.refOfPage(PageIndex{MemoryArena::pages}));
    const auto isBlock = [&](uint32_t ref) { return arena.blockAt(Ref{ref}).block != nullptr; };
    for (uint32_t ref = 0; ref < first; ++ref) ASSERT_FALSE(isBlock(ref));
    for (uint32_t ref = end; ref < end + 100000; ++ref) ASSERT_FALSE(isBlock(ref));
    for (uint32_t ref = ~0u; ref > ~0u - 100000; --ref) ASSERT_FALSE(isBlock(ref));
    EXPECT_TRUE(isBlock(first));
    EXPECT_TRUE(isBlock(end - 1));
}

TEST_F(ArenaTest, ReferencesAndBlocksTurnIntoEachOther) {
    const Ref ref = memory.layRun(5, 2) + 2 * linesOfClass(SizeClassId{2});
    EXPECT_EQ(arena.refOf(arena.blockAt(ref).block), ref);
    EXPECT_EQ(arena.blockOfSignal(&arena.blockAt(ref)->signal).block, arena.blockAt(ref).block);
}

TEST_F(ArenaTest, ASignalIsFoundAtItsVeryAddressOnly) {
    const Ref first = memory.layRun(5, 3);
    const size_t start = size_t{numberOf(first)} * lineBytes;
    const size_t blockBytes = size_t{linesOfClass(SizeClassId{3})} * lineBytes;
    for (size_t offset = start; offset < start + pageBytes; ++offset) {
        const size_t within = offset - start;
        const bool isSignal =
            within % blockBytes == offsetof(Block, signal) && within / blockBytes < sizeClasses[3].blocks;
        ASSERT_EQ(arena.blockOfSignal(signalAt(offset)).block != nullptr, isSignal) << within;
    }
}

TEST_F(ArenaTest, AnAddressOfAnyOtherOriginIsNoSignal) {
    for (uint32_t page = 0; page < MemoryArena::pages; ++page) memory.layRun(page, 0);
    LinxSignal onStack = {1};
    const auto onHeap = std::make_unique<LinxSignal>();
    EXPECT_EQ(arena.blockOfSignal(nullptr).block, nullptr);
    EXPECT_EQ(arena.blockOfSignal(&onStack).block, nullptr);
    EXPECT_EQ(arena.blockOfSignal(onHeap.get()).block, nullptr);
    EXPECT_EQ(arena.blockOfSignal(signalAt(0)).block, nullptr);
    EXPECT_EQ(arena.blockOfSignal(signalAt(offsetof(Block, signal))).block, nullptr);
    EXPECT_EQ(arena.blockOfSignal(signalAt(MemoryArena::bytes() + offsetof(Block, signal))).block, nullptr);
    EXPECT_EQ(arena.blockOfSignal(signalAt(~size_t{0})).block, nullptr);
}

TEST_F(ArenaTest, NoWordOfThePageMapLeadsOutside) {
    constexpr uint32_t last = MemoryArena::pages - 1;
    for (const uint32_t page : {0u, 1u, 500u, last - 1, last}) {
        for (uint32_t upper = 0; upper < 256; ++upper) {
            for (const uint32_t back : {0u, 1u, page, page + 1, 256u, 1023u, 1024u, 0x7fffffu, 0xffffffu}) {
                arena.pageEntry(PageIndex{page}).storeRelaxed(upper << 24 | back);
                for (uint32_t line = 0; line < linesPerPage; ++line) {
                    ASSERT_NO_FATAL_FAILURE(expectInsideOrNull(arena.refOfPage(PageIndex{page}) + line));
                }
            }
        }
    }
}

TEST_F(ArenaTest, NoRandomPageMapLeadsOutside) {
    std::mt19937 random(20240607);
    for (int round = 0; round < 20; ++round) {
        for (uint32_t page = 0; page < MemoryArena::pages; ++page) {
            const auto word = static_cast<uint32_t>(random());
            // Words that are nearly right as well as wild ones.
            arena.pageEntry(PageIndex{page})
                .storeRelaxed(round % 2 == 0 ? word
                                             : makePageEntry(SizeClassId{word % sizeClassCount}, word % (page + 1)));
        }
        for (Ref ref = arena.refOfPage(PageIndex{0}); ref < arena.refOfPage(PageIndex{MemoryArena::pages});
             ref = ref + 1) {
            ASSERT_NO_FATAL_FAILURE(expectInsideOrNull(ref));
        }
    }
}

}  // namespace
}  // namespace linx
