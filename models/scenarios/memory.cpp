// Arenas of a few pages, of which each holds four signals.

#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned keeper = 0;
constexpr unsigned wanting = 1;
constexpr unsigned third = 2;

void tryToKeepOne(Stage& stage) {
    stage.passTick();  // long since somebody last looked for memory
    stage.tryToKeep();
}

void keepOneLater(Stage& stage) {
    stage.passTick();
    stage.keep();
}

constexpr uint32_t pagesForEach = 8;  ///< or an endpoint would not keep what a page holds

/// The keeper keeps a page for itself; the rest belongs to signals that the wanting one has in hand.
void useUp(Stage& stage, unsigned endpoints) {
    stage.openFirst(endpoints);
    stage.as(keeper);
    stage.keep();
    stage.freeKept();
    if (!stage.hasFree()) scheduler.violate("the keeper keeps nothing");
    stage.as(wanting);
    while (stage.isThereMore()) stage.keep();
}

const Announced pressure("pressure", [](Scenario& its) {
    its.story =
        "one finds no memory; another, asleep, keeps some that it does not need, and gives it up; both die anywhere";
    its.actors = {"keeper", "wanting"};
    its.mortal = {wanting, keeper};
    its.patient = {keeper};
    its.pages = 2 * pagesForEach;
    its.prepare = [](Stage& stage) { useUp(stage, 2); };
    its.acts = {[](Stage& stage) { stage.receive(); }, tryToKeepOne};
});

const Announced pressureToPoll("pressure-to-poll", [](Scenario& its) {
    its.story =
        "the same without deaths; the one that keeps some is sent a signal, and waits in a poll loop of its own";
    its.actors = {"keeper", "wanting"};
    its.patient = {keeper};
    its.pages = 2 * pagesForEach;
    its.prepare = [](Stage& stage) { useUp(stage, 2); };
    its.acts = {[](Stage& stage) { stage.pollFrom(wanting, 2); },
                [](Stage& stage) {
                    stage.freeKept();
                    stage.send(keeper);
                    tryToKeepOne(stage);
                }};
});

const Announced pressureOfTwo("pressure-of-two", [](Scenario& its) {
    its.story =
        "two find no memory, and one has the lock when the other has asked for what a third keeps, which polls";
    its.actors = {"keeper", "wanting", "third"};
    its.patient = {keeper};
    its.pages = 3 * pagesForEach;
    its.prepare = [](Stage& stage) { useUp(stage, 3); };
    its.acts = {[](Stage& stage) { stage.pollFrom(wanting, 1); }, tryToKeepOne, tryToKeepOne};
});

const Announced pressureAndReturns("pressure-and-returns", [](Scenario& its) {
    its.story = "the same while a third gives back a block of the keeper's and dies anywhere";
    its.actors = {"keeper", "wanting", "third"};
    its.mortal = {third};
    its.patient = {keeper};
    its.pages = 3 * pagesForEach;
    its.prepare = [](Stage& stage) {
        useUp(stage, 3);
        stage.as(keeper);
        stage.keep();
        stage.lendKept(third);
    };
    its.acts = {[](Stage& stage) { stage.receive(); }, tryToKeepOne, [](Stage& stage) { stage.freeKept(); }};
});

const Announced memoryOfTheDead("memory-of-the-dead", [](Scenario& its) {
    its.story = "two find no memory, since one has died who had all of it, and whom nobody watched";
    its.actors = {"first", "second", "dead"};
    its.pages = 2;
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(third);
        while (stage.tryToKeep()) {
        }
        stage.killNow(third);
    };
    its.acts = {keepOneLater, keepOneLater, [](Stage&) {}};
});

const Announced pagesLeasedAgain("pages-leased-again", [](Scenario& its) {
    its.story =
        "one leases for another size what was leased before, and dies anywhere; what was written there is no block";
    its.actors = {"first", "leasing", "next"};
    its.mortal = {wanting};
    its.pages = 1;
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(keeper);
        for (unsigned i = 0; i < 4; ++i) stage.keep();
        stage.scribbleOverKept();
        stage.close();
    };
    its.acts = {[](Stage&) {},
                [](Stage& stage) {
                    stage.passTick();
                    stage.keepOther();
                    stage.die();
                },
                [](Stage& stage) {
                    stage.awaitEnd(wanting);
                    stage.passTick();
                    stage.passTick();
                    stage.keepOther();
                }};
});

}  // namespace
}  // namespace model
