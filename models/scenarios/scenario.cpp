#include "models/scenarios/scenario.h"

#include "models/machine/memory.h"
#include "models/scenarios/stage.h"

namespace model {

std::vector<const Scenario*>& Scenario::all() {
    static std::vector<const Scenario*> scenarios;
    return scenarios;
}

/// Bit i stands for actor i.
static unsigned maskOf(const std::vector<unsigned>& actors) {
    unsigned mask = 0;
    for (const unsigned actor : actors) mask |= 1u << actor;
    return mask;
}

Model modelOf(const Scenario& scenario) {
    memory.forgetShared();
    const auto stage = std::make_shared<Stage*>(nullptr);
    Model model;
    model.play.threads = static_cast<unsigned>(scenario.acts.size());
    model.play.mortal = maskOf(scenario.mortal);
    model.play.stoppable = maskOf(scenario.stoppable);
    model.play.body = [stage, &scenario](unsigned thread) { scenario.acts[thread](**stage); };
    model.play.nameOf = [&scenario](unsigned thread) { return scenario.actors[thread]; };
    model.play.maySleep = [stage, patient = maskOf(scenario.patient)](unsigned thread) {
        return (patient >> thread & 1) != 0 && !(*stage)->isWanted(thread);
    };
    model.prepare = [stage, &scenario] {
        *stage = new Stage(scenario.actors, scenario.spinMicroseconds, scenario.pages);
        scenario.prepare(**stage);
        (*stage)->begin();
    };
    model.check = [stage] { (*stage)->check(); };
    return model;
}

}  // namespace model
