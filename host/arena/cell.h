#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include <atomic>
#include <cstdint>

namespace linx {

/// The storage of a word of the arena. Checkers that watch every access to shared memory replace it: they put a
/// folder with a header of this path first in the include path, and compile all other sources as shipped.
using Cell = std::atomic<uint32_t>;

/// The same, of a word on which no operation depends: those who check every order of accesses leave it out.
using ToldCell = std::atomic<uint32_t>;

}  // namespace linx

#endif
