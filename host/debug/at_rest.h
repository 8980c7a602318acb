#ifndef LINXIPC_HOST_DEBUG_AT_REST_H
#define LINXIPC_HOST_DEBUG_AT_REST_H

#include "host/arena/arena.h"
#include "host/debug/findings.h"

namespace linx {
namespace debug {

/// Checks what endpoints change without the domain lock, while none of them is at work: the stacks, that every block
/// is in one place, and the shares. Counts the blocks.
void checkAtRest(const Arena& arena, Findings& findings);

}  // namespace debug
}  // namespace linx

#endif
