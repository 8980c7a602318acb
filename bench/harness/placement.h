#ifndef LINXIPC_BENCH_HARNESS_PLACEMENT_H
#define LINXIPC_BENCH_HARNESS_PLACEMENT_H

#include <string>

namespace bench {

/// Where the processes of a run may be. At most two cores are used, the first two that this program was given.
enum class Placement {
    apart,  ///< process i stays on core i % 2
    both,   ///< the kernel moves them between two cores
    one,    ///< all on one core
};

std::string nameOf(Placement placement);

/// Called in a new process, before it opens anything.
void confine(Placement placement);

/// Called in a process that has opened its end. Libraries that adapt themselves to the number of cores have seen both
/// by then; threads that they started stay free to use both.
void settle(Placement placement, unsigned process);

}  // namespace bench

#endif
