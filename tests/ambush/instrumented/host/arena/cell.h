#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include "tests/ambush/ambush.h"
#include "tests/kit/watched_cell.h"

namespace linx {

struct Ambushed {
    Ambushed() { ambush::pass(); }
};

/// A word of the arena that may have changed each time it is looked at. Stands in for the shipped header of the same
/// path.
using Cell = linxtest::WatchedCell<Ambushed, linxtest::Unwatched, Ambushed>;

/// Nobody who works in the arena looks at these.
using ToldCell = std::atomic<uint32_t>;

}  // namespace linx

#endif
