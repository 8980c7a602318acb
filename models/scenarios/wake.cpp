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

const Announced wake(Scenario{
    "wake",
    "two signals to one who sleeps, or is about to",
    {"receiver", "sender"},
    0,
    0,
    "0",
    true,
    openAcquainted,
    {receiveThem, sendTwo},
});

const Announced wakeSpinning(Scenario{
    "wake-spinning",
    "two signals to one who looks for a while before it sleeps",
    {"receiver", "sender"},
    0,
    0,
    "2",
    true,
    openAcquainted,
    {receiveThem, sendTwo},
});

const Announced poll(Scenario{
    "poll",
    "two signals to one who waits in a poll loop of its own",
    {"receiver", "sender"},
    0,
    0,
    "0",
    true,
    openAcquainted,
    {[](Stage& stage) { stage.pollFrom(1, 3); }, sendTwo},
});

const Announced meet(Scenario{
    "meet",
    "the first signal between two, who introduce themselves",
    {"receiver", "sender"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) { stage.openFirst(2); },
    {[](Stage& stage) { stage.receiveFrom(1, 1); }, [](Stage& stage) { stage.send(0); }},
});

}  // namespace
}  // namespace model
