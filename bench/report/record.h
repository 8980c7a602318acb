#ifndef LINXIPC_BENCH_REPORT_RECORD_H
#define LINXIPC_BENCH_REPORT_RECORD_H

#include "bench/harness/statistics.h"
#include "bench/scenarios/scenario.h"

namespace bench {

/// What the repeated runs of one case gave.
struct Record {
    std::string scenario;
    std::string peer;
    Placement placement;
    std::size_t payload;
    unsigned population;
    Spreads spreads;
};

using Records = std::vector<Record>;

}  // namespace bench

#endif
