#ifndef LINXIPC_HOST_ARENA_SPID_H
#define LINXIPC_HOST_ARENA_SPID_H

#include "host/arena/number_of.h"

namespace linx {

/*
 * A spid names one incarnation of a slot:
 *
 *    31  30  29                    13 12              0
 *   +---+---+------------------------+-----------------+
 *   | 0 | 0 |       generation       |   slot index    |
 *   +---+---+------------------------+-----------------+
 *
 * Index 0 is no slot, so a spid is never 0. The two upper bits are free for whoever stores a spid together with a
 * state: see LifeWord, OwnerWord and HunterWord.
 */
enum class Spid : uint32_t { none = 0 };

/// A slot, by its number in the table.
enum class SlotIndex : uint32_t { none = 0 };

constexpr uint32_t spidIndexBits = 13;
constexpr uint32_t spidGenerationBits = 17;
constexpr uint32_t spidMask = (1u << (spidIndexBits + spidGenerationBits)) - 1;
constexpr uint32_t slotCount = 1u << spidIndexBits;
constexpr uint32_t generationMask = (1u << spidGenerationBits) - 1;

constexpr SlotIndex indexOf(Spid spid) {
    return SlotIndex{numberOf(spid) & (slotCount - 1)};
}
constexpr uint32_t generationOf(Spid spid) {
    return (numberOf(spid) >> spidIndexBits) & generationMask;
}
constexpr Spid makeSpid(SlotIndex index, uint32_t generation) {
    return Spid{((generation & generationMask) << spidIndexBits) | numberOf(index)};
}
constexpr bool isSpid(Spid spid) {
    return (numberOf(spid) & ~spidMask) == 0 && indexOf(spid) != SlotIndex::none;
}

/// Whether `spid` is an earlier incarnation than `current` of the same slot; generations wrap, so "earlier" means
/// within the half circle behind.
constexpr bool isEarlier(Spid spid, Spid current) {
    const uint32_t behind = (generationOf(current) - generationOf(spid)) & generationMask;
    return behind != 0 && behind <= generationMask / 2;
}

}  // namespace linx

#endif
