#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned hunted = 1;
constexpr unsigned huntedNext = 2;

const Announced huntAndOpen(Scenario{
    "hunt-and-open",
    "somebody hunts a name while it is being opened",
    {"hunter", "hunted"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) { stage.openFirst(1); },
    {[](Stage& stage) {
         stage.hunt(hunted);
         stage.receive();
     },
     [](Stage& stage) { stage.open(hunted); }},
});

const Announced openerDies(Scenario{
    "opener-dies",
    "one who opens a hunted name dies anywhere; the next who opens it answers the hunt, unless it is answered",
    {"hunter", "hunted", "hunted"},
    1u << hunted,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(1);
        stage.hunt(hunted);
    },
    {[](Stage& stage) { stage.receive(); },
     [](Stage& stage) {
         stage.open(hunted);
         stage.die();
     },
     [](Stage& stage) {
         stage.awaitEnd(hunted);
         stage.open(huntedNext);
     }},
});

}  // namespace
}  // namespace model
