#ifndef LINXIPC_MODELS_SCENARIOS_SCENARIO_H
#define LINXIPC_MODELS_SCENARIOS_SCENARIO_H

#include <string>
#include <vector>

#include "models/machine/explorer.h"
#include "models/machine/platform.h"

namespace model {

class Stage;

/// A few endpoints with a few operations each, and who of them may die.
struct Scenario {
    const char* name;
    const char* story;
    std::vector<const char*> actors;  ///< the names of their endpoints
    unsigned mortal;                  ///< bit i: actor i may be killed at every step
    unsigned patient;                 ///< bit i: actor i may wait for ever if nothing waits for it
    const char* spinMicroseconds;     ///< the spin budget of all
    bool exhaustive;                  ///< small enough to reach every state; otherwise schedules are drawn
    std::function<void(Stage&)> prepare;
    std::vector<std::function<void(Stage&)>> acts;  ///< what each actor does, side by side
    unsigned stoppable = 0;                         ///< bit i: actor i may be stopped at every step, for good
    uint32_t pages = plentyOfPages;                 ///< of the arena

    static std::vector<const Scenario*>& all();
};

/// A scenario that makes itself known.
struct Announced : Scenario {
    explicit Announced(const Scenario& scenario) : Scenario(scenario) { all().push_back(this); }
};

/// The scenario for the explorer, all claims to be looked after.
Model modelOf(const Scenario& scenario);

}  // namespace model

#endif
