#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned home = 0;
constexpr unsigned borrower = 1;

/// The home keeps all its free blocks in hand, and has lent `lent` of them to the borrower, who has them in hand too.
void lend(Stage& stage, unsigned lent) {
    stage.openFirst(2);
    stage.as(home);
    do {
        stage.keep();
    } while (stage.hasFree());
    for (unsigned i = 0; i < lent; ++i) stage.lendKept(borrower);
}

const Announced returns("returns", [](Scenario& its) {
    its.story = "a home takes its returned blocks while they are being returned";
    its.actors = {"home", "borrower"};
    its.prepare = [](Stage& stage) { lend(stage, 2); };
    its.acts = {[](Stage& stage) {
                    stage.keep();
                    stage.keep();
                },
                [](Stage& stage) {
                    stage.freeKept();
                    stage.freeKept();
                }};
});

const Announced borrowerDies("borrower-dies", [](Scenario& its) {
    its.story = "one who gives blocks back dies anywhere";
    its.actors = {"home", "borrower"};
    its.mortal = {borrower};
    its.prepare = [](Stage& stage) {
        lend(stage, 2);
        stage.as(home);
        stage.supervise(borrower);
    };
    its.acts = {[](Stage& stage) {
                    stage.keep();
                    stage.receiveUntilNotice(borrower);
                },
                [](Stage& stage) {
                    stage.freeKept();
                    stage.freeKept();
                    stage.die();
                }};
});

const Announced homeDies("home-dies", [](Scenario& its) {
    its.story = "a home dies anywhere while its blocks are being returned";
    its.actors = {"home", "borrower"};
    its.mortal = {home};
    its.prepare = [](Stage& stage) {
        lend(stage, 2);
        stage.as(borrower);
        stage.supervise(home);
    };
    its.acts = {[](Stage& stage) {
                    stage.keep();
                    stage.die();
                },
                [](Stage& stage) {
                    stage.freeKept();
                    stage.freeKept();
                    stage.receiveUntilNotice(home);
                }};
});

}  // namespace
}  // namespace model
