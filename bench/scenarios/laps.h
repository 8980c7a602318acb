#ifndef LINXIPC_BENCH_SCENARIOS_LAPS_H
#define LINXIPC_BENCH_SCENARIOS_LAPS_H

#include <functional>

#include "bench/harness/effort.h"
#include "bench/scenarios/conversation.h"

namespace bench {

/// Does `lap` over and over and puts down how long each takes: median_ns, p99_ns, cpu_ns and messages.
void timeLaps(const Effort& effort, const std::function<void()>& lap, const ProcessorMeter& used, FigureSheet& sheet);

/// Does `step` over and over and puts down how many a second it manages: rate_per_s, cpu_ns and messages.
void countSteps(const Effort& effort, const std::function<void()>& step, const ProcessorMeter& used,
                FigureSheet& sheet);

}  // namespace bench

#endif
