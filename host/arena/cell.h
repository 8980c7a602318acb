#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include <atomic>
#include <cstdint>

namespace linx {

/// What a word of the arena is made of. Checks that watch every access to shared memory bring a cell of their own:
/// they put a folder with a header of this path in front of the include search, and everything else stays the shipped
/// source.
using Cell = std::atomic<uint32_t>;

}  // namespace linx

#endif
