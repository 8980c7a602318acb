// Deaths of those who mend what others have left, one after the other.

#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned victim = 1;
constexpr unsigned mender = 2;
constexpr unsigned survivor = 3;
constexpr unsigned last = 0;
constexpr unsigned absent = 3;

const Announced repairerDies("repairer-dies", [](Scenario& its) {
    its.story = "one dies anywhere while it answers a hunt, and the next where it repairs that; the third answers";
    its.actors = {"hunter", "hunted", "hunted", "hunted"};
    its.mortal = {victim, mender};
    its.prepare = [](Stage& stage) {
        stage.openFirst(1);
        stage.hunt(victim);
    };
    its.acts = {[](Stage& stage) {
                    stage.awaitOpen(survivor);
                    stage.receive();
                },
                [](Stage& stage) {
                    stage.open(victim);
                    stage.die();
                },
                [](Stage& stage) {
                    stage.awaitEnd(victim);
                    stage.open(mender);
                    stage.die();
                },
                [](Stage& stage) {
                    stage.awaitEnd(victim);
                    stage.awaitEnd(mender);
                    stage.open(survivor);
                }};
});

const Announced secondReaperDies("second-reaper-dies", [](Scenario& its) {
    its.story = "one dies anywhere in a send, a hunt of its pending; who reaps it dies anywhere; the next ends both";
    its.actors = {"last", "dead", "reaper", "absent"};
    its.mortal = {victim, mender};
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        for (unsigned other : {last, mender}) {
            stage.as(other);
            stage.supervise(victim);
        }
        stage.as(last);
        stage.supervise(mender);
        stage.as(victim);
        stage.hunt(absent);
        stage.send(last);
        stage.drain(last);
        stage.drain(victim);
    };
    its.acts = {[](Stage& stage) {
                    stage.awaitEnd(victim);
                    stage.awaitEnd(mender);
                    stage.receiveUntilNotice(victim);
                    stage.receiveUntilNotice(mender);
                },
                [](Stage& stage) {
                    stage.send(last);
                    stage.die();
                },
                [](Stage& stage) {
                    stage.awaitEnd(victim);
                    stage.receiveUntilNotice(victim);
                    stage.die();
                },
                [](Stage&) {}};
});

}  // namespace
}  // namespace model
