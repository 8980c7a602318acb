#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned receiver = 0;
constexpr unsigned sender = 1;
constexpr unsigned other = 2;

void sendOnce(Stage& stage) {
    stage.send(receiver);
}

const Announced senderStops(Scenario{
    "sender-stops",
    "of two senders one is stopped for good anywhere; the other's signals must still come",
    {"receiver", "sender", "other"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) { stage.openAcquainted(3); },
    {[](Stage& stage) { stage.receiveFrom(other, 3); }, sendOnce,
     [](Stage& stage) {
         stage.send(receiver);
         stage.send(receiver);
     }},
    1u << sender,
});

const Announced ringFails(Scenario{
    "ring-fails",
    "one of two senders cannot ring, and does nothing more; the other's signal must still come",
    {"receiver", "sender", "other"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openAcquainted(3);
        stage.failWrites(sender, 1);
    },
    {[](Stage& stage) { stage.receiveFrom(other, 2); }, sendOnce, sendOnce},
});

const Announced debtIsPaid(Scenario{
    "debt-is-paid",
    "a sender cannot ring, and not with its next operation either; with the one after that it does",
    {"receiver", "sender"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openAcquainted(2);
        stage.failWrites(sender, 2);
    },
    {[](Stage& stage) { stage.receiveFrom(sender, 2); },
     [](Stage& stage) {
         stage.send(receiver);
         stage.receive(false);
         stage.receive(false);
     }},
});

const Announced debtIsPaidToPoll(Scenario{
    "debt-is-paid-to-poll",
    "the same to one who waits in a poll loop of its own",
    {"receiver", "sender"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openAcquainted(2);
        stage.failWrites(sender, 2);
    },
    {[](Stage& stage) { stage.pollFrom(sender, 2); },
     [](Stage& stage) {
         stage.send(receiver);
         stage.receive(false);
         stage.receive(false);
     }},
});

/// The sender's first signal reaches whom it may; it dies anywhere, and who supervises it reaps it.
void sendAndDie(Stage& stage) {
    stage.send(receiver);
    stage.die();
}
void reapSender(Stage& stage) {
    stage.awaitEnd(sender);  // what it does before makes no difference to the two
    stage.receiveUntilNotice(sender);
}
void openSupervised(Stage& stage) {
    stage.openFirst(3);
    stage.as(other);
    stage.supervise(sender);
}

const Announced unwatchedDies(Scenario{
    "unwatched-dies",
    "a sender dies anywhere in its first send to one who can watch nobody; who reaps it wakes that one",
    {"receiver", "sender", "reaper"},
    1u << sender,
    1u << receiver,
    "0",
    true,
    [](Stage& stage) {
        openSupervised(stage);
        stage.limitDescriptors(receiver, 0);
    },
    {[](Stage& stage) { stage.receiveFrom(sender, 1); }, sendAndDie, reapSender},
});

const Announced unheardDies(Scenario{
    "unheard-dies",
    "the same, when one of its writes to the doorbell fails, its introduction or its ring",
    {"receiver", "sender", "reaper"},
    1u << sender,
    1u << receiver,
    "0",
    true,
    [](Stage& stage) {
        openSupervised(stage);
        stage.failWrites(sender, 1);
    },
    {[](Stage& stage) { stage.receiveFrom(sender, 1); }, sendAndDie, reapSender},
});

const Announced partedDies(Scenario{
    "parted-dies",
    "a receiver short of descriptors parts with a sender for another's sake; the first dies anywhere in its next "
    "send",
    {"receiver", "sender", "other"},
    1u << sender,
    1u << receiver,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(3);
        stage.as(sender);
        stage.send(receiver);
        stage.drain(receiver);
        stage.limitDescriptors(receiver, 0);
    },
    {[](Stage& stage) {
         stage.receiveFrom(other, 1);
         stage.receiveFrom(sender, 2);
     },
     sendOnce, sendOnce},
});

const Announced partedForPoll(Scenario{
    "parted-for-poll",
    "a receiver parts with a sender to get the descriptor that it polls; that one dies anywhere in its next send",
    {"receiver", "sender", "other"},
    1u << sender,
    1u << receiver,
    "0",
    true,
    [](Stage& stage) {
        stage.openAcquainted(3);
        stage.limitDescriptors(receiver, 0);
    },
    {[](Stage& stage) { stage.pollFrom(sender, 2); }, sendOnce, [](Stage&) {}},
});

const Announced fullDoorbell(Scenario{
    "full-doorbell",
    "a sender cannot introduce itself, since the doorbell is full, and dies anywhere in its first send",
    {"receiver", "sender"},
    1u << sender,
    1u << receiver,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(2);
        stage.fillDoorbell(receiver);
    },
    {[](Stage& stage) { stage.receiveFrom(sender, 1); }, sendOnce},
});

}  // namespace
}  // namespace model
