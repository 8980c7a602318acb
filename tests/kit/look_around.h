#ifndef LINXIPC_TESTS_KIT_LOOK_AROUND_H
#define LINXIPC_TESTS_KIT_LOOK_AROUND_H

#include <memory>
#include <vector>

#include "inspect/endpoints.h"
#include "inspect/holdings.h"
#include "inspect/hunts.h"
#include "inspect/place.h"
#include "inspect/record.h"
#include "inspect/snapshot.h"
#include "inspect/traffic.h"
#include "inspect/waits.h"

namespace linxtest {

/// All that a look into a domain shows.
struct Sight {
    std::vector<linx::inspect::Endpoint> endpoints;
    std::vector<linx::inspect::PendingHunt> hunts;
    std::unordered_map<linx::Spid, linx::inspect::Holding> holdings;
    std::vector<std::vector<linx::Spid>> cycles;
    std::vector<std::vector<linx::inspect::Recorded>> records;
    std::vector<linx::inspect::Recorded> history;  ///< the records in one order
    std::vector<linx::inspect::Flow> flows;
};

/// Looks at everything that the program linx can show. Null where there is no arena, or it is none: a garbled one may
/// say anything, but it is read within its bounds, and in time.
inline std::unique_ptr<Sight> lookAround(const linx::inspect::Place& place) {
    using namespace linx::inspect;
    const std::unique_ptr<Snapshot> snapshot = Snapshot::take(place.file());
    if (snapshot == nullptr) return nullptr;
    const linx::Arena& arena = snapshot->arena();
    auto sight = std::make_unique<Sight>();
    sight->endpoints = endpointsOf(arena, place);
    sight->hunts = pendingHunts(arena);
    sight->holdings = holdingsOf(arena);
    sight->cycles = cyclesOf(edgesOf(sight->endpoints));
    arena.forEachUsedSlot(
        [&](linx::SlotIndex index, const linx::Slot&) { sight->records.push_back(recordOf(arena, index)); });
    sight->history = merge(sight->records);
    sight->flows = flowsOf(sight->records);
    return sight;
}

}  // namespace linxtest

#endif
