#ifndef LINXIPC_BENCH_SCENARIOS_CHOOSE_H
#define LINXIPC_BENCH_SCENARIOS_CHOOSE_H

#include "bench/scenarios/scenario.h"

namespace bench {

/// Every combination that the peers can take part in, those that differ in the peer alone next to each other.
std::vector<Case> Combine(const std::vector<const Peer*>& peers, Pattern pattern,
                          const std::vector<Placement>& placements, const std::vector<std::size_t>& payloads,
                          const std::vector<unsigned>& processes);

/// LinxIpc alone, when it is among the peers.
std::vector<const Peer*> LinxIpcOf(const Wishes& wishes);

}  // namespace bench

#endif
