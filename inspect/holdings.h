#ifndef LINXIPC_INSPECT_HOLDINGS_H
#define LINXIPC_INSPECT_HOLDINGS_H

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>

#include "host/arena/arena.h"

namespace linx {
namespace inspect {

/// The signals that an endpoint owns: those that its user has, and those that are queued for it.
struct Holding {
    std::map<uint32_t, uint32_t> sizes;  ///< how many, by the bytes of their blocks
    /// It has had one of them since then at the latest: nanoseconds of the monotonic clock. None where no record
    /// tells of any: nobody stamps signals, so this is what the events beside their sending or reception say.
    std::optional<uint64_t> since;
};

/// Those of the open endpoints of a snapshot that own any.
std::unordered_map<Spid, Holding> holdingsOf(const Arena& arena);

}  // namespace inspect
}  // namespace linx

#endif
