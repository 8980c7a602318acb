#include "bench/scenarios/list.h"

namespace bench {

std::vector<std::unique_ptr<Scenario>> allScenarios() {
    std::vector<std::unique_ptr<Scenario>> all;
    for (const auto& make :
         {makeRoundTrip, makeStream, makeFanIn, makeRelay, makeRelayHop, makeRing, makeEndpoints, makeCrowdedSend,
          makeBacklog, makeIdle, makeMemory, makeFootprint, makeDomain, makeCopy}) {
        all.push_back(make());
    }
    return all;
}

}  // namespace bench
