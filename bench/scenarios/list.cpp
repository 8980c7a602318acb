#include "bench/scenarios/list.h"

namespace bench {

std::vector<std::unique_ptr<Scenario>> AllScenarios() {
    std::vector<std::unique_ptr<Scenario>> all;
    for (const auto& make : {MakeRoundTrip, MakeStream, MakeFanIn, MakeRelay, MakeRelayHop, MakeRing, MakeEndpoints,
                             MakeCrowdedSend, MakeBacklog, MakeIdle, MakeMemory, MakeCopy}) {
        all.push_back(make());
    }
    return all;
}

}  // namespace bench
