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

bool areOfOneProcess(const Endpoint& a, const Endpoint& b) {
    return a.process && b.process && a.process->pid == b.process->pid;
}

/// The process has one mask, of which each of its endpoints has a copy: where one kept another, it would show that,
/// and setting it to that would do nothing.
void set(const linx::inspect::Place& place, const std::vector<Endpoint>& endpoints, const Endpoint& endpoint,
         uint32_t mask) {
    if (linx::inspect::setLogMask(place, endpoint.spid, mask)) {
        for (const Endpoint& other : endpoints) {
            if (areOfOneProcess(endpoint, other)) linx::inspect::setLogMask(place, other.spid, mask);
        }
        return;
    }
    if (errno == ESRCH) failForName(endpoint.name);
    throw Failure(refused, "the log mask of " + printable(endpoint.name) + " cannot be set: " + std::strerror(errno) +
                               "; it takes the right to join the domain");
}

}  // namespace

int log(const Options& options, const LogOptions& what) {
    if (what.level) requireDomain(options);
    linx::inspect::Place place;
    openPlace(options, place);
    const std::vector<Endpoint> endpoints = linx::inspect::endpointsOf(snapshotOf(place)->arena(), place);
    const Endpoint& endpoint = openEndpoint(endpoints, what.name);
    if (what.level) set(place, endpoints, endpoint, *what.level);
    const uint32_t mask = what.level.value_or(endpoint.logMask);
    if (options.json) {
        printJson({{"name", endpoint.name}, {"level", mask}});
    } else {
        printLine(std::to_string(mask));
    }
    return done;
}

}  // namespace tools
