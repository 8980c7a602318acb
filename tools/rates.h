#ifndef LINXIPC_TOOLS_RATES_H
#define LINXIPC_TOOLS_RATES_H

#include <chrono>
#include <vector>

#include "inspect/endpoints.h"
#include "inspect/place.h"

namespace tools {

/// The endpoints at a moment.
struct Sample {
    uint64_t nanoseconds = 0;  ///< of the monotonic clock
    std::vector<linx::inspect::Endpoint> endpoints;
};

/// Throws a Failure where the domain cannot be read.
Sample sampleOf(const linx::inspect::Place& place);

/// What went through an endpoint each second.
struct Rate {
    double signalsOut = 0;
    double signalsIn = 0;
    double bytesOut = 0;
    double bytesIn = 0;
};

/// An open endpoint of the later sample, and what it did since the earlier one; nothing if it was not there.
struct Rated {
    linx::inspect::Endpoint endpoint;
    Rate rate;
};
std::vector<Rated> ratesBetween(const Sample& earlier, const Sample& later);

/// "0", "12.5", "3.2k", "1.1M".
std::string humanRate(double perSecond);

}  // namespace tools

#endif
