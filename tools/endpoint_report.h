#ifndef LINXIPC_TOOLS_ENDPOINT_REPORT_H
#define LINXIPC_TOOLS_ENDPOINT_REPORT_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inspect/endpoints.h"
#include "tools/queues.h"

namespace tools {

/// One endpoint in full.
struct EndpointReport {
    using Notices = std::map<std::string, uint32_t>;  ///< so many of each

    /// A signal that will come.
    struct Timeout {
        uint32_t number;
        double seconds;
    };

    /// A signal that was not sent.
    struct Error {
        uint32_t number;
        uint32_t size;
        std::optional<std::string> to;
        std::string reason;
    };

    linx::inspect::Endpoint endpoint;
    Piles queued;
    std::map<uint32_t, linx::inspect::Amount> classes;  ///< what it owns, by the bytes of a block
    uint64_t leased = 0;                                ///< memory whose home it is, free or not
    uint64_t share = 0;                                 ///< that it may have
    std::vector<std::string> hunts;
    Notices supervised;             ///< by this one
    Notices supervisors;            ///< of this one
    std::vector<Timeout> timeouts;  ///< the earliest first
    std::vector<Error> errors;      ///< the last that are recorded, the oldest first
    std::string waitsFor;           ///< to whom it sent before it slept
};

/// Of the open endpoint of that name; otherwise of the one that ended last. Throws a Failure where there was none.
EndpointReport reportOf(const linx::Arena& arena, const linx::inspect::Place& place, const std::string& name);

}  // namespace tools

#endif
