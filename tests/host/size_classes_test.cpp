#include "host/arena/size_classes.h"

#include <gtest/gtest.h>

#include "host/arena/layout.h"

namespace linx {
namespace {

TEST(SizeClasses, EveryLineCountFallsIntoTheSmallestClassThatHoldsIt) {
    for (uint32_t lines = 1; lines <= largestClassLines; ++lines) {
        const SizeClassId sizeClass = classForLines(Lines{lines});
        ASSERT_LT(sizeClass, sizeClassCount) << lines;
        ASSERT_GE(linesOfClass(sizeClass), lines);
        if (sizeClass > 0) {
            ASSERT_LT(sizeClasses[sizeClass - 1].lines, lines);
        }
    }
}

TEST(SizeClasses, AClassIsAtMostAQuarterAndALineLargerThanTheOneBefore) {
    for (uint32_t c = 1; c < sizeClassCount; ++c) {
        EXPECT_GT(sizeClasses[c].lines, sizeClasses[c - 1].lines);
        EXPECT_LE(4 * (sizeClasses[c].lines - 1), 5 * sizeClasses[c - 1].lines) << c;
    }
}

TEST(SizeClasses, ASignalOf65536BytesWastesLessThanALine) {
    const Lines lines = linesForSignal(65536);
    EXPECT_EQ(linesOfClass(classForLines(lines)), lines);
}

TEST(SizeClasses, TheLargestSignalFitsTheLargestClassAndOneByteMoreWouldStillBeCounted) {
    EXPECT_LE(linesForSignal(maxSignalBytes), largestClassLines);
    EXPECT_EQ(classForLines(linesForSignal(maxSignalBytes)), sizeClassCount - 1);
}

TEST(SizeClasses, TheBlockOfALineIsExactForEveryLineOfEveryRun) {
    for (uint32_t c = 0; c < sizeClassCount; ++c) {
        const uint32_t lines = sizeClasses[c].lines;
        for (uint32_t line = 0; line < sizeClasses[c].pages * linesPerPage; ++line) {
            ASSERT_EQ(blockIndexInRun(SizeClassId{c}, line), line / lines) << "class " << c << " line " << line;
        }
    }
}

TEST(SizeClasses, TheBlocksOfARunFillAtLeastSevenEighthsOfItAndNoMoreThanAllOfIt) {
    for (const SizeClass& c : sizeClasses) {
        const uint32_t all = c.pages * linesPerPage;
        EXPECT_LE(c.blocks * c.lines, all);
        EXPECT_GE(8 * c.blocks * c.lines, 7 * all);
        EXPECT_GE(c.blocks, 1u);
    }
}

TEST(SizeClasses, ASignalAlwaysFitsTheLinesThatAreCountedForIt) {
    for (uint32_t bytes = 4; bytes <= 4096; ++bytes) {
        ASSERT_GE(linesForSignal(bytes) * lineBytes, offsetof(Block, signal) + bytes);
        ASSERT_LT((linesForSignal(bytes) - 1) * lineBytes, offsetof(Block, signal) + bytes);
    }
}

}  // namespace
}  // namespace linx
