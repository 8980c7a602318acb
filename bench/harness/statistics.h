#ifndef LINXIPC_BENCH_HARNESS_STATISTICS_H
#define LINXIPC_BENCH_HARNESS_STATISTICS_H

#include <cstdint>
#include <vector>

#include "bench/harness/figures.h"

namespace bench {

/// The value below which the fraction `part` (0 to 1) of the samples lies, of which there is at least one. Reorders
/// them.
double quantile(std::vector<std::uint32_t>& samples, double part);

/// One figure over repeated runs.
struct Spread {
    double median;
    double least;
    double most;
    std::vector<double> runs;  ///< in the order in which they were made
};

Spread spreadOf(std::vector<double> values);

/// All figures of repeated runs, each of which has the same ones.
using Spreads = std::map<std::string, Spread>;
Spreads spreadsOf(const std::vector<Figures>& runs);

}  // namespace bench

#endif
