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

const Announced senderStops("sender-stops", [](Scenario& its) {
    its.story = "of two senders one is stopped for good anywhere; the other's signals must still come";
    its.actors = {"receiver", "sender", "other"};
    its.stoppable = {sender};
    its.prepare = [](Stage& stage) { stage.openAcquainted(3); };
    its.acts = {[](Stage& stage) { stage.receiveFrom(other, 3); }, sendOnce,
                [](Stage& stage) {
                    stage.send(receiver);
                    stage.send(receiver);
                }};
});

const Announced ringFails("ring-fails", [](Scenario& its) {
    its.story = "one of two senders cannot ring, and does nothing more; the other's signal must still come";
    its.actors = {"receiver", "sender", "other"};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(3);
        stage.failWrites(sender, 1);
    };
    its.acts = {[](Stage& stage) { stage.receiveFrom(other, 2); }, sendOnce, sendOnce};
});

const Announced debtIsPaid("debt-is-paid", [](Scenario& its) {
    its.story = "a sender cannot ring, and not with its next operation either; with the one after that it does";
    its.actors = {"receiver", "sender"};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(2);
        stage.failWrites(sender, 2);
    };
    its.acts = {[](Stage& stage) { stage.receiveFrom(sender, 2); },
                [](Stage& stage) {
                    stage.send(receiver);
                    stage.receive(false);
                    stage.receive(false);
                }};
});

const Announced debtIsPaidToPoll("debt-is-paid-to-poll", [](Scenario& its) {
    its.story = "the same to one who waits in a poll loop of its own";
    its.actors = {"receiver", "sender"};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(2);
        stage.failWrites(sender, 2);
    };
    its.acts = {[](Stage& stage) { stage.pollFrom(sender, 2); },
                [](Stage& stage) {
                    stage.send(receiver);
                    stage.receive(false);
                    stage.receive(false);
                }};
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

const Announced unwatchedDies("unwatched-dies", [](Scenario& its) {
    its.story = "a sender dies anywhere in its first send to one who can watch nobody; who reaps it wakes that one";
    its.actors = {"receiver", "sender", "reaper"};
    its.mortal = {sender};
    its.patient = {receiver};
    its.prepare = [](Stage& stage) {
        openSupervised(stage);
        stage.limitDescriptors(receiver, 0);
    };
    its.acts = {[](Stage& stage) { stage.receiveFrom(sender, 1); }, sendAndDie, reapSender};
});

const Announced unheardDies("unheard-dies", [](Scenario& its) {
    its.story = "the same, when one of its writes to the doorbell fails, its introduction or its ring";
    its.actors = {"receiver", "sender", "reaper"};
    its.mortal = {sender};
    its.patient = {receiver};
    its.prepare = [](Stage& stage) {
        openSupervised(stage);
        stage.failWrites(sender, 1);
    };
    its.acts = {[](Stage& stage) { stage.receiveFrom(sender, 1); }, sendAndDie, reapSender};
});

const Announced partedDies("parted-dies", [](Scenario& its) {
    its.story =
        "a receiver short of descriptors parts with a sender for another's sake; the first dies anywhere in its next "
        "send";
    its.actors = {"receiver", "sender", "other"};
    its.mortal = {sender};
    its.patient = {receiver};
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(sender);
        stage.send(receiver);
        stage.drain(receiver);
        stage.limitDescriptors(receiver, 0);
    };
    its.acts = {[](Stage& stage) {
                    stage.receiveFrom(other, 1);
                    stage.receiveFrom(sender, 2);
                },
                sendOnce, sendOnce};
});

const Announced partedForPoll("parted-for-poll", [](Scenario& its) {
    its.story =
        "a receiver parts with a sender to get the descriptor that it polls; that one dies anywhere in its next send";
    its.actors = {"receiver", "sender", "other"};
    its.mortal = {sender};
    its.patient = {receiver};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(3);
        stage.limitDescriptors(receiver, 0);
    };
    its.acts = {[](Stage& stage) { stage.pollFrom(sender, 2); }, sendOnce, [](Stage&) {}};
});

const Announced fullDoorbell("full-doorbell", [](Scenario& its) {
    its.story = "a sender cannot introduce itself, since the doorbell is full, and dies anywhere in its first send";
    its.actors = {"receiver", "sender"};
    its.mortal = {sender};
    its.patient = {receiver};
    its.prepare = [](Stage& stage) {
        stage.openFirst(2);
        stage.fillDoorbell(receiver);
    };
    its.acts = {[](Stage& stage) { stage.receiveFrom(sender, 1); }, sendOnce};
});

}  // namespace
}  // namespace model
