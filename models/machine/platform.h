#ifndef LINXIPC_MODELS_MACHINE_PLATFORM_H
#define LINXIPC_MODELS_MACHINE_PLATFORM_H

#include <cstdint>

namespace model {

constexpr uint32_t plentyOfPages = 1024;

/// Lays down an arena of so many pages in which nobody has been yet, for the memory to cover. The file system has
/// memory for all of them, but for no more than seven slots: whoever opens then gets the slot of one who has ended.
void layArena(uint32_t pages);
constexpr unsigned slotsWithMemory = 7;

}  // namespace model

#endif
