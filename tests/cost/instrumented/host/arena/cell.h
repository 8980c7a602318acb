#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include "tests/cost/looks.h"
#include "tests/kit/watched_cell.h"

namespace linx {

/// A word of the arena that counts each look at it. Stands in for the shipped header of the same path.
using Cell = linxtest::WatchedCell<cost::Look, cost::Look, cost::Look>;

/// Nobody waits for these: they are not counted.
using ToldCell = std::atomic<uint32_t>;

}  // namespace linx

#endif
