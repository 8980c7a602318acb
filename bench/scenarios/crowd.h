#ifndef LINXIPC_BENCH_SCENARIOS_CROWD_H
#define LINXIPC_BENCH_SCENARIOS_CROWD_H

#include <string>
#include <vector>

#include "bench/harness/barrier.h"
#include "bench/harness/crew.h"

namespace bench {

/// How many processes it takes to hold `endpoints` without many descriptors in any of them.
unsigned holdersFor(unsigned endpoints);

/// Adds servants that hold endpoints which do nothing, crowd.0, crowd.1, ... Each servant waits at the barrier when
/// its endpoints are open.
void addCrowd(unsigned endpoints, const Barrier& allOpen, std::vector<Member>& members);

std::string crowdName(unsigned endpoint);

}  // namespace bench

#endif
