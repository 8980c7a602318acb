#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned hunter = 0;
constexpr unsigned opener = 1;

/// The client that starts before its server.
void huntFirst(Stage& stage) {
    stage.openFirst(1);
    stage.hunt(opener);
}

/// The same, answered already.
void huntAndAnswer(Stage& stage) {
    huntFirst(stage);
    stage.as(opener);
    stage.open(opener);
}

void sendOnceAnswered(Stage& stage) {
    stage.receive();
    stage.send(opener);
}

void openAndServe(Stage& stage) {
    stage.open(opener);
    stage.receiveFrom(hunter, 1);
}

const Announced hunterSends("hunter-sends", [](Scenario& its) {
    its.story = "one whose hunt a later opener answers sends to it and dies anywhere; the opener, asleep, must wake";
    its.actors = {"hunter", "opener"};
    its.mortal = {hunter};
    its.patient = {opener};
    its.prepare = huntFirst;
    its.acts = {sendOnceAnswered, openAndServe};
});

const Announced hunterSendsToPoll("hunter-sends-to-poll", [](Scenario& its) {
    its.story = "the same when the opener waits in a poll loop of its own";
    its.actors = {"hunter", "opener"};
    its.mortal = {hunter};
    its.patient = {opener};
    its.prepare = huntAndAnswer;
    its.acts = {sendOnceAnswered, [](Stage& stage) { stage.pollFrom(hunter, 1); }};
});

const Announced hunterAndOpenerDie("hunter-and-opener-die", [](Scenario& its) {
    its.story = "the same when both die anywhere";
    its.actors = {"hunter", "opener"};
    its.mortal = {hunter, opener};
    its.patient = {hunter, opener};
    its.prepare = huntAndAnswer;
    its.acts = {sendOnceAnswered, [](Stage& stage) { stage.receiveFrom(hunter, 1); }};
});

const Announced answererDies("answerer-dies", [](Scenario& its) {
    its.story = "one who opens a hunted name dies anywhere; what it has answered must come, though nobody follows it";
    its.actors = {"hunter", "opener"};
    its.mortal = {opener};
    its.patient = {hunter};
    its.prepare = huntFirst;
    its.acts = {[](Stage& stage) { stage.receive(); },
                [](Stage& stage) {
                    stage.open(opener);
                    stage.die();
                }};
});

constexpr unsigned borrower = 2;
constexpr unsigned mender = 3;

const Announced answerComesBack("answer-comes-back", [](Scenario& its) {
    its.story = "one dies over its answer to a hunt; the block, passed on, comes back while somebody mends that";
    its.actors = {"hunter", "opener", "borrower", "mender"};
    its.prepare = [](Stage& stage) {
        stage.openFirst(1);
        stage.as(borrower);
        stage.open(borrower);
        stage.send(hunter);
        stage.drain(hunter);
        stage.hunt(opener);
        stage.as(opener);
        stage.open(opener);
        stage.as(hunter);
        stage.receiveToKeep();
        stage.sendKept(borrower);
        stage.as(borrower);
        stage.receiveToKeep();
        stage.dieAnswering(opener);
    };
    its.acts = {[](Stage&) {}, [](Stage&) {},
                [](Stage& stage) {
                    stage.sendKept(hunter);
                    stage.send(hunter);
                },
                [](Stage& stage) { stage.open(mender); }};
});

}  // namespace
}  // namespace model
