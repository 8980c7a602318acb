#ifndef LINXIPC_TESTS_SIMULATE_RUN_H
#define LINXIPC_TESTS_SIMULATE_RUN_H

#include <deque>
#include <string>

#include "link/session/events.h"

namespace simulate {

/// What was seen of one seed, or of many.
struct Outcome {
    std::string violation;  ///< empty when all claims hold
    std::deque<std::string> trace;
    uint64_t sessions = 0;
    uint64_t signals = 0;
    uint64_t notices = 0;
    uint64_t losses = 0;
    uint64_t faults = 0;
    linx::link::Time recovery = {};  ///< from the network's being well to everything's being there
};

/// A world from a seed: its nodes work while the weather is bad, and then it has to come to rest.
Outcome run(uint64_t seed, bool wantsTrace);

}  // namespace simulate

#endif
