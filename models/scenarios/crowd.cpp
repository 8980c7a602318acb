#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned crowdSize = 4;

void openCrowd(Stage& stage) {
    stage.openFirst(crowdSize);
    for (unsigned survivor : {0u, 1u}) {
        stage.as(survivor);
        stage.supervise(2);
        stage.supervise(3);
    }
}

void chat(Stage& stage, unsigned self) {
    for (unsigned other = 0; other < crowdSize; ++other) {
        if (other != self) stage.send(other);
        stage.receive(false);
    }
}

void survive(Stage& stage, unsigned self) {
    chat(stage, self);
    stage.receiveFrom(1 - self, 1);
    stage.receiveUntilNotice(2);
    stage.receiveUntilNotice(3);
}

void perish(Stage& stage, unsigned self) {
    chat(stage, self);
    stage.die();
}

const Announced crowd("crowd", [](Scenario& its) {
    its.story = "four talk to each other; two die anywhere, two supervise them";
    its.actors = {"first", "second", "third", "fourth"};
    its.mortal = {2, 3};
    its.exhaustive = false;
    its.prepare = openCrowd;
    its.acts = {[](Stage& stage) { survive(stage, 0); }, [](Stage& stage) { survive(stage, 1); },
                [](Stage& stage) { perish(stage, 2); }, [](Stage& stage) { perish(stage, 3); }};
});

}  // namespace
}  // namespace model
