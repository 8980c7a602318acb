#ifndef LINXIPC_INSPECT_WAITS_H
#define LINXIPC_INSPECT_WAITS_H

#include <vector>

#include "inspect/endpoints.h"

namespace linx {
namespace inspect {

/// An endpoint that waits for a signal of certain numbers, since it has sent one to another.
struct Edge {
    Spid from = Spid::none;
    Spid to = Spid::none;
    uint32_t sent = 0;    ///< what it sent last
    uint32_t number = 0;  ///< the last that it waits for, of the first four
    uint64_t since = 0;   ///< nanoseconds of the monotonic clock

    bool operator==(const Edge& other) const { return from == other.from && to == other.to && since == other.since; }
};

/// Who waits for whom. An endpoint waits for whoever it sent to last: an endpoint that serves by a receive of certain
/// numbers looks as if it waited for whom it answered last.
std::vector<Edge> edgesOf(const std::vector<Endpoint>& endpoints);

/// Endpoints that wait for each other in a circle, in the order of waiting; each circle once, beginning with
/// whoever comes first among the edges.
std::vector<std::vector<Spid>> cyclesOf(const std::vector<Edge>& edges);

}  // namespace inspect
}  // namespace linx

#endif
