#ifndef LINXIPC_MODELS_SCENARIOS_SCENARIO_H
#define LINXIPC_MODELS_SCENARIOS_SCENARIO_H

#include <functional>
#include <string>
#include <vector>

#include "models/machine/explorer.h"
#include "models/machine/platform.h"

namespace model {

class Stage;

/// A few endpoints with a few operations each, and what may befall them. Actors are told by their place in `actors`.
struct Scenario {
    const char* name = "";
    const char* story = "";
    std::vector<const char*> actors;      ///< the names of their endpoints
    std::vector<unsigned> mortal;         ///< these may be killed at every step
    std::vector<unsigned> stoppable;      ///< these may be stopped at every step, for good
    std::vector<unsigned> patient;        ///< these may wait for ever if nothing waits for them
    const char* spinMicroseconds = "0";   ///< the spin budget of all
    bool exhaustive = true;               ///< small enough to reach every state; otherwise schedules are drawn
    uint32_t pages = plentyOfPages;       ///< of the arena
    std::function<void(Stage&)> prepare;  ///< lays down the state in which every execution begins
    std::vector<std::function<void(Stage&)>> acts;  ///< what each actor does, side by side

    static std::vector<const Scenario*>& all();
};

/// A scenario that makes itself known; `describe` says what differs from the defaults.
struct Announced : Scenario {
    Announced(const char* itsName, const std::function<void(Scenario&)>& describe) {
        name = itsName;
        describe(*this);
        all().push_back(this);
    }
};

/// The scenario for the explorer, all claims to be looked after.
Model modelOf(const Scenario& scenario);

}  // namespace model

#endif
