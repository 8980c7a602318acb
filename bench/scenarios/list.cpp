#include "bench/scenarios/list.h"

namespace bench {

std::vector<std::unique_ptr<Scenario>> AllScenarios() {
    std::vector<std::unique_ptr<Scenario>> all;
    all.push_back(MakeRoundTrip());
    all.push_back(MakeStream());
    all.push_back(MakeFanIn());
    return all;
}

}  // namespace bench
