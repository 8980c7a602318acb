#ifndef LINXIPC_HOST_DEBUG_GUARDED_H
#define LINXIPC_HOST_DEBUG_GUARDED_H

#include "host/arena/arena.h"
#include "host/debug/findings.h"

namespace linx {
namespace debug {

/// Checks what the domain lock guards: the header, the tables and the lists. Nothing that it looks at is changed
/// without the lock, and it allocates nothing unless it finds something. A list is as long as what is counted
/// elsewhere, which bounds every walk and leaves no room for a cycle.
void checkGuarded(const Arena& arena, Findings& findings);

}  // namespace debug
}  // namespace linx

#endif
