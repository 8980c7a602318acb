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

const Announced hunterSends(Scenario{
    "hunter-sends",
    "one whose hunt a later opener answers sends to it and dies anywhere; the opener, asleep, must wake",
    {"hunter", "opener"},
    1u << hunter,
    1u << opener,
    "0",
    true,
    huntFirst,
    {sendOnceAnswered, openAndServe},
});

const Announced hunterSendsToPoll(Scenario{
    "hunter-sends-to-poll",
    "the same when the opener waits in a poll loop of its own",
    {"hunter", "opener"},
    1u << hunter,
    1u << opener,
    "0",
    true,
    huntAndAnswer,
    {sendOnceAnswered, [](Stage& stage) { stage.pollFrom(hunter, 1); }},
});

const Announced hunterAndOpenerDie(Scenario{
    "hunter-and-opener-die",
    "the same when both die anywhere",
    {"hunter", "opener"},
    1u << hunter | 1u << opener,
    1u << hunter | 1u << opener,
    "0",
    true,
    huntAndAnswer,
    {sendOnceAnswered, [](Stage& stage) { stage.receiveFrom(hunter, 1); }},
});

const Announced answererDies(Scenario{
    "answerer-dies",
    "one who opens a hunted name dies anywhere; what it has answered must come, though nobody follows it",
    {"hunter", "opener"},
    1u << opener,
    1u << hunter,
    "0",
    true,
    huntFirst,
    {[](Stage& stage) { stage.receive(); },
     [](Stage& stage) {
         stage.open(opener);
         stage.die();
     }},
});

}  // namespace
}  // namespace model
