#ifndef LINXIPC_DEMO_VERDICT_H
#define LINXIPC_DEMO_VERDICT_H

#include <vector>

#include "demo/console.h"
#include "demo/ledger.h"
#include "demo/options.h"

namespace demo {

/// Ticks that must have been seen before the demonstration may end.
constexpr std::size_t ticksWanted = 10;

/// How things stand after the demonstration, as the launcher finds them.
struct Remains {
    std::size_t processes = 0;   ///< servers that had to be ended by force
    bool domainRemoved = false;  ///< nothing left on shared memory
};

/// What was to happen, what did and who saw it, one row a capability.
std::vector<Row> judge(const Ledger& ledger, const Options& options, const Remains& remains);

}  // namespace demo

#endif
