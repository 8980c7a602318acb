#ifndef LINXIPC_BENCH_SCENARIOS_LIST_H
#define LINXIPC_BENCH_SCENARIOS_LIST_H

#include "bench/scenarios/scenario.h"

namespace bench {

std::unique_ptr<Scenario> MakeRoundTrip();
std::unique_ptr<Scenario> MakeStream();
std::unique_ptr<Scenario> MakeFanIn();

std::vector<std::unique_ptr<Scenario>> AllScenarios();

}  // namespace bench

#endif
