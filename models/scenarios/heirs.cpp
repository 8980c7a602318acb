// Slots that are used again while somebody is still held up over their last user.

#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned late = 0;  ///< who is held up
constexpr unsigned first = 1;
constexpr unsigned heir = 2;  ///< gets the slot of the first

void followFirst(Stage& stage) {
    stage.awaitEnd(first);
    stage.open(heir);
}

const Announced heirAndSender("heir-and-sender", [](Scenario& its) {
    its.story = "a slot's next user meets a signal to the one before, and is woken for its own";
    its.actors = {"sender", "first", "heir"};
    its.prepare = [](Stage& stage) {
        stage.openFirst(2);
        stage.as(late);
        stage.send(first);
        stage.drain(first);
        stage.drain(late);
        stage.fillSlots(late);
    };
    its.acts = {[](Stage& stage) {
                    stage.send(first);
                    stage.awaitOpen(heir);
                    stage.send(heir);
                },
                [](Stage& stage) { stage.close(); },
                [](Stage& stage) {
                    followFirst(stage);
                    stage.receiveFrom(late, 1);
                }};
});

const Announced heirIsMet("heir-is-met", [](Scenario& its) {
    its.story = "who supervised the slot's last user writes to the next one, and is told of the end nevertheless";
    its.actors = {"supervisor", "first", "heir"};
    its.prepare = [](Stage& stage) {
        stage.openFirst(2);
        stage.as(late);
        stage.supervise(first);
        stage.fillSlots(late);
    };
    its.acts = {[](Stage& stage) {
                    stage.awaitOpen(heir);
                    stage.send(heir);
                    stage.receiveUntilNotice(first);
                },
                [](Stage& stage) { stage.close(); }, followFirst};
});

const Announced nameOfFirst("name-of-first", [](Scenario& its) {
    its.story = "the name behind a spid is asked for while its slot goes to another with a shorter one";
    its.actors = {"asker", "first", "heir"};
    its.prepare = [](Stage& stage) {
        stage.openFirst(2);
        stage.fillSlots(late);
    };
    its.acts = {[](Stage& stage) { stage.askName(first); }, [](Stage& stage) { stage.close(); }, followFirst};
});

/// The first has lent a block to the one who is held up over giving it back.
void lendToLate(Stage& stage, unsigned keeper) {
    stage.openFirst(2);
    stage.as(first);
    stage.keep();
    stage.lendKept(late);
    stage.drain(first);
    stage.fillSlots(keeper);
}

void inherit(Stage& stage) {
    followFirst(stage);
    stage.keep();
}

const Announced heirAndFreer("heir-and-freer", [](Scenario& its) {
    its.story = "a slot's next user is given back a block of the one before";
    its.actors = {"freer", "first", "heir"};
    its.prepare = [](Stage& stage) { lendToLate(stage, late); };
    its.acts = {[](Stage& stage) { stage.freeKept(); }, [](Stage& stage) { stage.close(); }, inherit};
});

const Announced heirAndDyingFreer("heir-and-dying-freer", [](Scenario& its) {
    its.story = "the same by one who dies anywhere";
    its.actors = {"freer", "first", "heir"};
    its.mortal = {late};
    its.prepare = [](Stage& stage) { lendToLate(stage, first); };
    its.acts = {[](Stage& stage) { stage.freeKept(); }, [](Stage& stage) { stage.close(); }, inherit};
});

const Announced heirAndAnswerer("heir-and-answerer", [](Scenario& its) {
    its.story = "one who opens a hunted name dies anywhere; the next who opens it does so in the same slot";
    its.actors = {"hunter", "hunted", "hunted"};
    its.mortal = {first};
    its.prepare = [](Stage& stage) {
        stage.openFirst(1);
        stage.hunt(first);
        stage.fillSlots(late, 1);
    };
    its.acts = {[](Stage& stage) { stage.receive(); },
                [](Stage& stage) {
                    stage.open(first);
                    stage.die();
                },
                followFirst};
});

}  // namespace
}  // namespace model
