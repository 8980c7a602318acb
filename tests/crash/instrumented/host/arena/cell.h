#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include "tests/crash/site.h"
#include "tests/kit/watched_cell.h"

namespace linx {

/// A word of the arena whose every change is a place to die at. Stands in for the shipped header of the same path.
using Cell = linxtest::WatchedCell<linxtest::Unwatched, crash::Sites, crash::Sites>;

/// What an endpoint only tells must be whole as well when it dies.
using ToldCell = Cell;

}  // namespace linx

#endif
