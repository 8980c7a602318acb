#ifndef LINXIPC_IPC_SAMENAME_H
#define LINXIPC_IPC_SAMENAME_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

/// Whether two texts of at least one and at most two words are equal: their first and their last word are, which may
/// overlap.
template <class Word>
inline bool SameEnds(const char* a, const char* b, std::size_t length) {
    Word first[2], last[2];
    std::memcpy(&first[0], a, sizeof(Word));
    std::memcpy(&first[1], b, sizeof(Word));
    std::memcpy(&last[0], a + length - sizeof(Word), sizeof(Word));
    std::memcpy(&last[1], b + length - sizeof(Word), sizeof(Word));
    return first[0] == first[1] && last[0] == last[1];
}

/// As ==, in fewer steps where names are as short as most: every message has two compared.
inline bool SameName(const std::string& a, const std::string& b) {
    const std::size_t length = a.size();
    if (b.size() != length) return false;
    if (length - 8 <= 8) return SameEnds<std::uint64_t>(a.data(), b.data(), length);
    if (length - 4 <= 4) return SameEnds<std::uint32_t>(a.data(), b.data(), length);
    return a == b;
}

#endif
