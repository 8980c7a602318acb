#ifndef LINXIPC_INSPECT_RECORD_H
#define LINXIPC_INSPECT_RECORD_H

#include <string>
#include <vector>

#include "host/arena/arena.h"

namespace linx {
namespace inspect {

/// An event that an endpoint, alive or not, has recorded. Which of the fields say something stands at EventKind.
struct Recorded {
    Spid endpoint = Spid::none;
    uint32_t count = 0;  ///< of the events of its slot
    EventKind kind = EventKind::none;
    uint32_t number = 0;
    uint32_t size = 0;
    Spid peer = Spid::none;
    Ref block = Ref::none;
    uint32_t reason = 0;
    uint64_t time = 0;  ///< nanoseconds of the monotonic clock; when it happened, or 0 where it asked no clock
};

/// The events of the endpoint in this slot of a snapshot, the oldest first: at most the last 64. None that may have
/// been overwritten while they were copied.
std::vector<Recorded> recordOf(const Arena& arena, SlotIndex index);

/// The records of several endpoints in one order: each endpoint's own, every signal sent before it is received, and
/// by time as far as a time is known.
std::vector<Recorded> merge(const std::vector<std::vector<Recorded>>& records);

/// "sent", "received" and so on: scripts rely on the words.
const char* wordFor(EventKind kind);

}  // namespace inspect
}  // namespace linx

#endif
