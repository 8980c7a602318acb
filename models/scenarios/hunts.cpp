#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned hunted = 1;
constexpr unsigned huntedNext = 2;

const Announced huntAndOpen("hunt-and-open", [](Scenario& its) {
    its.story = "somebody hunts a name while it is being opened";
    its.actors = {"hunter", "hunted"};
    its.prepare = [](Stage& stage) { stage.openFirst(1); };
    its.acts = {[](Stage& stage) {
                    stage.hunt(hunted);
                    stage.receive();
                },
                [](Stage& stage) { stage.open(hunted); }};
});

const Announced openerDies("opener-dies", [](Scenario& its) {
    its.story =
        "one who opens a hunted name dies anywhere; the next who opens it answers the hunt, unless it is answered";
    its.actors = {"hunter", "hunted", "hunted"};
    its.mortal = {hunted};
    its.prepare = [](Stage& stage) {
        stage.openFirst(1);
        stage.hunt(hunted);
    };
    its.acts = {[](Stage& stage) { stage.receive(); },
                [](Stage& stage) {
                    stage.open(hunted);
                    stage.die();
                },
                [](Stage& stage) {
                    stage.awaitEnd(hunted);
                    stage.open(huntedNext);
                }};
});

}  // namespace
}  // namespace model
