#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

void openAcquainted(Stage& stage) {
    stage.openAcquainted(2);
}

void sendTwo(Stage& stage) {
    stage.send(0);
    stage.send(0);
}
void receiveThem(Stage& stage) {
    stage.receiveFrom(1, 3);  // one came when they met
}

const Announced wake("wake", [](Scenario& its) {
    its.story = "two signals to one who sleeps, or is about to";
    its.actors = {"receiver", "sender"};
    its.prepare = openAcquainted;
    its.acts = {receiveThem, sendTwo};
});

const Announced wakeSpinning("wake-spinning", [](Scenario& its) {
    its.story = "two signals to one who looks for a while before it sleeps";
    its.actors = {"receiver", "sender"};
    its.spinMicroseconds = "2";
    its.prepare = openAcquainted;
    its.acts = {receiveThem, sendTwo};
});

const Announced poll("poll", [](Scenario& its) {
    its.story = "two signals to one who waits in a poll loop of its own";
    its.actors = {"receiver", "sender"};
    its.prepare = openAcquainted;
    its.acts = {[](Stage& stage) { stage.pollFrom(1, 3); }, sendTwo};
});

const Announced meet("meet", [](Scenario& its) {
    its.story = "the first signal between two, who introduce themselves";
    its.actors = {"receiver", "sender"};
    its.prepare = [](Stage& stage) { stage.openFirst(2); };
    its.acts = {[](Stage& stage) { stage.receiveFrom(1, 1); }, [](Stage& stage) { stage.send(0); }};
});

}  // namespace
}  // namespace model
