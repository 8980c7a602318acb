#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "inspect/log_mask.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Endpoint;

namespace {

/// The processes that have endpoints of this name log by the mask, each for all of its endpoints.
void set(const linx::inspect::Place& place, const Endpoint& endpoint, uint32_t mask) {
    if (linx::inspect::setLogMask(place, endpoint.spid, mask)) return;
    if (errno == ESRCH) failForName(endpoint.name);
    throw Failure(refused, "the log mask of " + printable(endpoint.name) + " cannot be set: " + std::strerror(errno) +
                               "; it takes the right to join the domain");
}

}  // namespace

int log(const Options& options, const LogOptions& what) {
    if (what.level) requireDomain(options);
    linx::inspect::Place place;
    openPlace(options, place);
    const Endpoint endpoint = openEndpoint(linx::inspect::endpointsOf(snapshotOf(place)->arena(), place), what.name);
    if (what.level) set(place, endpoint, *what.level);
    const uint32_t mask = what.level.value_or(endpoint.logMask);
    if (options.json) {
        printJson({{"name", endpoint.name}, {"level", mask}});
    } else {
        printLine(std::to_string(mask));
    }
    return done;
}

}  // namespace tools
