#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned hunter = 0;
constexpr unsigned hunted = 1;
constexpr unsigned heir = 2;

void openHunter(Stage& stage) {
    stage.as(hunter);
    stage.open(hunter);
}

const Scenario huntAndOpen = {
    "hunt-and-open",
    "somebody hunts a name while it is being opened",
    {"hunter", "hunted"},
    0,
    0,
    0,
    "0",
    true,
    openHunter,
    {[](Stage& stage) {
         stage.hunt(hunted);
         stage.receive();
     },
     [](Stage& stage) { stage.open(hunted); }},
};
const Announce announceHuntAndOpen(huntAndOpen);

const Scenario openerDies = {
    "opener-dies",
    "one who opens a hunted name dies anywhere; the next who opens it answers the hunt, unless it is answered",
    {"hunter", "hunted", "hunted"},
    1u << hunted,
    1,
    0,
    "0",
    true,
    [](Stage& stage) {
        openHunter(stage);
        stage.hunt(hunted);
    },
    {[](Stage& stage) { stage.receive(); },
     [](Stage& stage) {
         stage.open(hunted);
         stage.die();
     },
     [](Stage& stage) {
         stage.awaitEnd(hunted);
         stage.open(heir);
     }},
};
const Announce announceOpenerDies(openerDies);

}  // namespace
}  // namespace model
