#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

void openBoth(Stage& stage) {
    for (unsigned actor = 0; actor < 2; ++actor) {
        stage.as(actor);
        stage.open(actor);
    }
}

/// They have talked before: bells are open, and everybody is back to quiet.
void openAcquainted(Stage& stage) {
    openBoth(stage);
    stage.as(1);
    stage.send(0);
    stage.as(0);
    stage.receive(false);
    while (stage.receive(false)) {
    }
}

void sendTwo(Stage& stage) {
    stage.send(0);
    stage.send(0);
}
void receiveThem(Stage& stage) {
    stage.receiveFrom(1, 3);  // one came when they met
}

const Scenario wake = {
    "wake",
    "two signals to one who sleeps, or is about to",
    {"receiver", "sender"},
    0,
    0,
    0,
    "0",
    true,
    openAcquainted,
    {receiveThem, sendTwo},
};
const Announce announceWake(wake);

const Scenario wakeLooking = {
    "wake-looking",
    "two signals to one who looks for a while before it sleeps",
    {"receiver", "sender"},
    0,
    0,
    0,
    "2",
    true,
    openAcquainted,
    {receiveThem, sendTwo},
};
const Announce announceWakeLooking(wakeLooking);

const Scenario poll = {
    "poll",
    "two signals to one who waits in a poll loop of its own",
    {"receiver", "sender"},
    0,
    0,
    0,
    "0",
    true,
    openAcquainted,
    {[](Stage& stage) { stage.pollFrom(1, 3); }, sendTwo},
};
const Announce announcePoll(poll);

const Scenario meet = {
    "meet",
    "the first signal between two, who introduce themselves",
    {"receiver", "sender"},
    0,
    0,
    0,
    "0",
    true,
    openBoth,
    {[](Stage& stage) { stage.receiveFrom(1, 1); }, [](Stage& stage) { stage.send(0); }},
};
const Announce announceMeet(meet);

}  // namespace
}  // namespace model
