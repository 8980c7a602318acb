#ifndef LINXIPC_BENCH_SCENARIOS_LIST_H
#define LINXIPC_BENCH_SCENARIOS_LIST_H

#include "bench/scenarios/scenario.h"

namespace bench {

std::unique_ptr<Scenario> makeRoundTrip();
std::unique_ptr<Scenario> makeStream();
std::unique_ptr<Scenario> makeFanIn();
std::unique_ptr<Scenario> makeRelay();
std::unique_ptr<Scenario> makeRelayHop();
std::unique_ptr<Scenario> makeRing();
std::unique_ptr<Scenario> makeEndpoints();
std::unique_ptr<Scenario> makeCrowdedSend();
std::unique_ptr<Scenario> makeBacklog();
std::unique_ptr<Scenario> makeIdle();
std::unique_ptr<Scenario> makeMemory();
std::unique_ptr<Scenario> makeFootprint();
std::unique_ptr<Scenario> makeDomain();
std::unique_ptr<Scenario> makeCopy();

std::vector<std::unique_ptr<Scenario>> allScenarios();

}  // namespace bench

#endif
