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

/// Compares an arena with the invariants that stand in layout.h above what they speak of. REQUIRES the domain lock,
/// and that it was not found dirty: repair() comes first.
Findings validate(const Arena& arena, Grade grade);

/// To be called by who is about to leave the domain lock: ends the process, and tells why, unless all that the lock
/// guards is in order. Looks at first every time, then every now and then; and never where $LINX_VALIDATE is 0, which
/// is for those who scribble over the arena.
void requireOrder(const Arena& arena);

}  // namespace debug
}  // namespace linx

#endif
