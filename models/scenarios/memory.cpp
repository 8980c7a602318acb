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

const Announced pressure(Scenario{
    "pressure",
    "one finds no memory; another, asleep, keeps some that it does not need, and gives it up; both die anywhere",
    {"keeper", "wanting"},
    1u << wanting | 1u << keeper,
    1u << keeper,
    "0",
    true,
    [](Stage& stage) { useUp(stage, 2); },
    {[](Stage& stage) { stage.receive(); }, tryToKeepOne},
    0,
    2 * pagesForEach,
});

const Announced pressureToPoll(Scenario{
    "pressure-to-poll",
    "the same without deaths; the one that keeps some is sent a signal, and waits in a poll loop of its own",
    {"keeper", "wanting"},
    0,
    1u << keeper,
    "0",
    true,
    [](Stage& stage) { useUp(stage, 2); },
    {[](Stage& stage) { stage.pollFrom(wanting, 2); },
     [](Stage& stage) {
         stage.freeKept();
         stage.send(keeper);
         tryToKeepOne(stage);
     }},
    0,
    2 * pagesForEach,
});

const Announced pressureOfTwo(Scenario{
    "pressure-of-two",
    "two find no memory, and one has the lock when the other has asked for what a third keeps, which polls",
    {"keeper", "wanting", "third"},
    0,
    1u << keeper,
    "0",
    true,
    [](Stage& stage) { useUp(stage, 3); },
    {[](Stage& stage) { stage.pollFrom(wanting, 1); }, tryToKeepOne, tryToKeepOne},
    0,
    3 * pagesForEach,
});

const Announced pressureAndReturns(Scenario{
    "pressure-and-returns",
    "the same while a third gives back a block of the keeper's and dies anywhere",
    {"keeper", "wanting", "third"},
    1u << third,
    1u << keeper,
    "0",
    true,
    [](Stage& stage) {
        useUp(stage, 3);
        stage.as(keeper);
        stage.keep();
        stage.lendKept(third);
    },
    {[](Stage& stage) { stage.receive(); }, tryToKeepOne, [](Stage& stage) { stage.freeKept(); }},
    0,
    3 * pagesForEach,
});

const Announced memoryOfTheDead(Scenario{
    "memory-of-the-dead",
    "two find no memory, since one has died who had all of it, and whom nobody watched",
    {"first", "second", "dead"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(3);
        stage.as(third);
        while (stage.tryToKeep()) {
        }
        stage.killNow(third);
    },
    {keepOneLater, keepOneLater, [](Stage&) {}},
    0,
    2,
});

const Announced pagesLeasedAgain(Scenario{
    "pages-leased-again",
    "one leases for another size what was leased before, and dies anywhere; what was written there is no block",
    {"first", "leasing", "next"},
    1u << wanting,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(3);
        stage.as(keeper);
        for (unsigned i = 0; i < 4; ++i) stage.keep();
        stage.scribbleOverKept();
        stage.close();
    },
    {[](Stage&) {},
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
     }},
    0,
    1,
});

}  // namespace
}  // namespace model
