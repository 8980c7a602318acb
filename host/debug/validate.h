#ifndef LINXIPC_HOST_DEBUG_VALIDATE_H
#define LINXIPC_HOST_DEBUG_VALIDATE_H

#include "host/arena/arena.h"
#include "host/debug/findings.h"

namespace linx {
namespace debug {

/// How much of an arena is looked at.
enum class Grade {
    quick,  ///< what the domain lock guards: in order for its holder, whoever else is at work. Needs no memory
    full    ///< each slot and block as well. REQUIRES that nobody is at work
};

/// Checks an arena against the invariants in layout.h. REQUIRES the domain lock, and that it was not found dirty:
/// repair() comes first.
Findings validate(const Arena& arena, Grade grade);

/// To be called before the domain lock is released: aborts with a message unless all that the lock guards is in
/// order. Checks every time at first, then now and then; never if $LINX_VALIDATE is 0, which is for tests that
/// scribble over the arena.
void requireOrder(const Arena& arena);

}  // namespace debug
}  // namespace linx

#endif
