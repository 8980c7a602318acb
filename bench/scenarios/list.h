#ifndef LINXIPC_BENCH_SCENARIOS_LIST_H
#define LINXIPC_BENCH_SCENARIOS_LIST_H

#include "bench/scenarios/scenario.h"

namespace bench {

std::unique_ptr<Scenario> MakeRoundTrip();
std::unique_ptr<Scenario> MakeStream();
std::unique_ptr<Scenario> MakeFanIn();
std::unique_ptr<Scenario> MakeRelay();
std::unique_ptr<Scenario> MakeRelayHop();
std::unique_ptr<Scenario> MakeRing();
std::unique_ptr<Scenario> MakeEndpoints();
std::unique_ptr<Scenario> MakeCrowdedSend();
std::unique_ptr<Scenario> MakeBacklog();
std::unique_ptr<Scenario> MakeIdle();
std::unique_ptr<Scenario> MakeMemory();
std::unique_ptr<Scenario> MakeCopy();

std::vector<std::unique_ptr<Scenario>> AllScenarios();

}  // namespace bench

#endif
