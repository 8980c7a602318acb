#ifndef LINXIPC_BENCH_SCENARIOS_CHOOSE_H
#define LINXIPC_BENCH_SCENARIOS_CHOOSE_H

#include "bench/scenarios/scenario.h"

namespace bench {

/// Every combination that the peers can take part in, those that differ in the peer alone next to each other.
std::vector<Case> combine(const std::vector<const Peer*>& peers, Pattern pattern,
                          const std::vector<Placement>& placements, const std::vector<std::size_t>& payloads,
                          const std::vector<unsigned>& processes);

/// The same for two processes: all payloads with a core each and with one core for both, and a small and a large one
/// where the kernel places them, which mostly decides between those two.
std::vector<Case> combineForTwo(const Wishes& wishes, Pattern pattern);

/// The one of that name, when it is among the peers.
std::vector<const Peer*> only(const char* name, const Wishes& wishes);

/// Those that leave the processor to others while they wait.
std::vector<const Peer*> blocking(const Wishes& wishes);

/// LinxIpc alone, if it is among the peers, with each of the populations.
std::vector<Case> linxIpcAmong(const Wishes& wishes, Placement placement, std::size_t payload,
                               const std::vector<unsigned>& populations);

}  // namespace bench

#endif
