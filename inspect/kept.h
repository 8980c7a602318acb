#ifndef LINXIPC_INSPECT_KEPT_H
#define LINXIPC_INSPECT_KEPT_H

#include <vector>

#include "host/arena/arena.h"

namespace linx {
namespace inspect {

/// An endpoint has asked to be told when another one ends.
struct Supervision {
    Spid supervisor;
    Spid supervised;
    uint32_t number;  ///< of the signal that will tell
};

/// A time-out that has not fired.
struct PendingTimeout {
    Spid owner;
    uint32_t number;
    uint64_t nanoseconds;  ///< until it fires; 0 when it should have
};

/// What open endpoints wait to be told, in a snapshot.
struct Kept {
    std::vector<Supervision> supervisions;
    std::vector<PendingTimeout> timeouts;  ///< the earliest first
};

/// `now` is in nanoseconds of the monotonic clock.
Kept keptSignals(const Arena& arena, uint64_t now);

}  // namespace inspect
}  // namespace linx

#endif
