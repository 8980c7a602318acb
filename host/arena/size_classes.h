#ifndef LINXIPC_HOST_ARENA_SIZE_CLASSES_H
#define LINXIPC_HOST_ARENA_SIZE_CLASSES_H

#include <array>
#include <cstdint>

namespace linx {

constexpr uint32_t lineBytes = 64;    ///< blocks start on a cache line; references count lines
constexpr uint32_t pageBytes = 4096;  ///< the arena is leased in pages
constexpr uint32_t linesPerPage = pageBytes / lineBytes;

/// A page of the pool, by its number there. Converts to a number implicitly, but not from one.
enum PageIndex : uint32_t {};

/// The size of something in lines; as a number as well.
enum Lines : uint32_t {};

/// A size class, by its index in `sizeClasses`; as a number as well.
enum SizeClassId : uint32_t {};

/// A size class: blocks of `lines` cache lines, leased in runs of `pages` pages that hold `blocks` of them.
struct alignas(32) SizeClass {
    Lines lines;
    uint32_t pages;
    uint32_t blocks;
    uint32_t reciprocal;  ///< ceil(2^32 / lines): divides an offset within a run by a multiplication
    uint64_t starts;      ///< bit i: a block starts at line i of a run's first page
};

/*
 * One to eight lines singly, then four classes to each doubling: 10 12 14 | 17 21 25 29 | 33 41 49 57 | ... | 16385.
 * From 17 on a class has one line over the round number, since payloads of a round number of bytes are common and
 * each brings a header: 65,536 bytes lie in 1025 lines and not in 1280.
 */
constexpr uint32_t sizeClassCount = 52;
constexpr SizeClassId largestClass{sizeClassCount - 1};
constexpr uint32_t firstQuarteredClass = 11;

constexpr Lines linesOfClass(SizeClassId sizeClass) {
    constexpr uint32_t small[firstQuarteredClass] = {1, 2, 3, 4, 5, 6, 7, 8, 10, 12, 14};
    if (sizeClass < firstQuarteredClass) return Lines{small[sizeClass]};
    const uint32_t step = sizeClass - firstQuarteredClass;
    const uint32_t base = 16u << (step / 4);
    return Lines{base + base / 4 * (step % 4) + 1};
}

constexpr SizeClass makeSizeClass(SizeClassId sizeClass) {
    const Lines lines = linesOfClass(sizeClass);
    uint32_t pages = (lines + linesPerPage - 1) / linesPerPage;
    // The shortest run that wastes at most an eighth at its end.
    while (pages * linesPerPage % lines > pages * linesPerPage / 8) ++pages;
    const auto reciprocal = static_cast<uint32_t>(((uint64_t{1} << 32) + lines - 1) / lines);
    const uint32_t blocks = pages * linesPerPage / lines;
    uint64_t starts = 0;
    for (uint32_t i = 0; i < blocks && i * lines < linesPerPage; ++i) starts |= uint64_t{1} << (i * lines);
    return {lines, pages, blocks, lines == 1 ? 0 : reciprocal, starts};
}

constexpr std::array<SizeClass, sizeClassCount> makeSizeClasses() {
    std::array<SizeClass, sizeClassCount> classes{};
    for (uint32_t c = 0; c < sizeClassCount; ++c) classes[c] = makeSizeClass(SizeClassId{c});
    return classes;
}

inline constexpr std::array<SizeClass, sizeClassCount> sizeClasses = makeSizeClasses();

/// The lines of each class once more, side by side: found by fewer instructions, where every signal asks for them.
constexpr std::array<uint32_t, sizeClassCount> makeClassLines() {
    std::array<uint32_t, sizeClassCount> lines{};
    for (uint32_t c = 0; c < sizeClassCount; ++c) lines[c] = linesOfClass(SizeClassId{c});
    return lines;
}

inline constexpr std::array<uint32_t, sizeClassCount> classLines = makeClassLines();

constexpr uint32_t floorLog2(uint32_t value) {
    return 31u - static_cast<uint32_t>(__builtin_clz(value));
}

inline constexpr uint8_t classForFewLines[15] = {0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 8, 9, 9, 10, 10};

/// The smallest class whose blocks have at least `lines` lines; `lines` is 1 to those of the largest class.
constexpr SizeClassId classForLines(Lines lines) {
    if (__builtin_expect(lines < 15, true)) return SizeClassId{classForFewLines[lines]};  // as most have
    if (lines <= 17) return SizeClassId{firstQuarteredClass};
    const uint32_t beyond = lines - 2;
    const uint32_t doubling = floorLog2(beyond);
    const uint32_t quarter = (beyond - (1u << doubling)) >> (doubling - 2);
    return SizeClassId{firstQuarteredClass + (doubling - 4) * 4 + quarter + 1};
}

constexpr Lines largestClassLines = linesOfClass(largestClass);

/// Which block of a run of `sizeClass` a line belongs to that lies `line` lines into the run.
constexpr uint32_t blockIndexInRun(SizeClassId sizeClass, uint32_t line) {
    const SizeClass& c = sizeClasses[sizeClass];
    return c.lines == 1 ? line : static_cast<uint32_t>((uint64_t{line} * c.reciprocal) >> 32);
}

/// Whether a block starts `line` lines into a run of `sizeClass`.
constexpr bool startsBlock(SizeClassId sizeClass, uint32_t line) {
    const uint32_t index = blockIndexInRun(sizeClass, line);
    return line == index * sizeClasses[sizeClass].lines && index < sizeClasses[sizeClass].blocks;
}

}  // namespace linx

#endif
