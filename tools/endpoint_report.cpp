#include "tools/endpoint_report.h"

#include <cstring>

#include "host/arena/share.h"
#include "host/system/clock.h"
#include "inspect/hunts.h"
#include "inspect/kept.h"
#include "inspect/record.h"
#include "inspect/signals.h"
#include "tools/look.h"

namespace tools {

using linx::Arena;
using linx::BlockRef;
using linx::Spid;
using linx::inspect::Endpoint;
using linx::inspect::State;
using linx::inspect::Where;

namespace {

/// Whether the user of a name says more of it than another one: who is open does, or who ended later.
bool isLater(const Endpoint& one, const Endpoint& other) {
    const bool hasEnded = one.state == State::ended;
    if (hasEnded != (other.state == State::ended)) return !hasEnded;
    return static_cast<int32_t>(one.ending - other.ending) > 0;
}

Endpoint find(const std::vector<Endpoint>& endpoints, const std::string& name) {
    const Endpoint* found = nullptr;
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.name == name && (found == nullptr || isLater(endpoint, *found))) found = &endpoint;
    }
    if (found == nullptr) failForName(name);
    return *found;
}

void addSignals(const Arena& arena, EndpointReport& report) {
    const Spid own = report.endpoint.spid;
    linx::inspect::forEachSignal(arena, [&](Where, Spid owner, BlockRef block) {
        if (owner == own) report.classes[linx::linesOfClass(block.sizeClass) * linx::lineBytes].add(block);
    });
    auto queued = queuesOf(arena);
    report.queued = std::move(queued[own]);
}

void addKept(const Arena& arena, EndpointReport& report) {
    const Spid own = report.endpoint.spid;
    const linx::inspect::Kept kept = linx::inspect::keptSignals(arena, linx::now());
    for (const linx::inspect::Supervision& one : kept.supervisions) {
        if (one.supervisor == own) ++report.supervised[nameIn(arena, one.supervised)];
        if (one.supervised == own) ++report.supervisors[nameIn(arena, one.supervisor)];
    }
    for (const linx::inspect::PendingTimeout& one : kept.timeouts) {
        if (one.owner == own) report.timeouts.push_back({one.number, static_cast<double>(one.nanoseconds) / 1e9});
    }
}

void addErrors(const Arena& arena, EndpointReport& report) {
    constexpr size_t most = 8;
    std::vector<EndpointReport::Error>& errors = report.errors;
    for (const linx::inspect::Recorded& event : linx::inspect::recordOf(arena, indexOf(report.endpoint.spid))) {
        if (event.kind != linx::EventKind::refused) continue;
        errors.push_back({event.number, event.size, std::nullopt, std::strerror(static_cast<int>(event.reason))});
        if (event.peer != Spid::none) errors.back().to = nameIn(arena, event.peer);
    }
    if (errors.size() > most) errors.erase(errors.begin(), errors.end() - most);
}

}  // namespace

EndpointReport reportOf(const Arena& arena, const linx::inspect::Place& place, const std::string& name) {
    EndpointReport report;
    report.endpoint = find(linx::inspect::endpointsOf(arena, place), name);
    report.share = uint64_t{linx::share::limitOf(arena)} * linx::lineBytes;
    addErrors(arena, report);
    const Endpoint& endpoint = report.endpoint;
    if (!isOpen(arena, endpoint.spid)) return report;
    report.leased = uint64_t{linx::share::linesOf(arena.slot(indexOf(endpoint.spid)))} * linx::lineBytes;
    addSignals(arena, report);
    addKept(arena, report);
    if (endpoint.wait) report.waitsFor = nameIn(arena, endpoint.wait->to);
    for (const linx::inspect::PendingHunt& hunt : linx::inspect::pendingHunts(arena)) {
        if (hunt.hunter == endpoint.spid) report.hunts.push_back(hunt.name);
    }
    return report;
}

}  // namespace tools
