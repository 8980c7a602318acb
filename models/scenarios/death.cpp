#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned a = 0;
constexpr unsigned b = 1;
constexpr unsigned c = 2;

const Announced senderDies("sender-dies", [](Scenario& its) {
    its.story = "a sender dies anywhere in two sends; who supervises it gets what it sent, then the notice";
    its.actors = {"receiver", "sender"};
    its.mortal = {b};
    its.prepare = [](Stage& stage) {
        stage.openFirst(2);
        stage.as(a);
        stage.supervise(b);
        stage.as(b);
        stage.send(a);
        stage.drain(a);
    };
    its.acts = {[](Stage& stage) { stage.receiveUntilNotice(b); },
                [](Stage& stage) {
                    stage.send(a);
                    stage.send(a);
                    stage.die();
                }};
});

const Announced strangerDies("stranger-dies", [](Scenario& its) {
    its.story = "a sender whom nobody supervises dies in its first send; what it has sent must still come";
    its.actors = {"receiver", "sender"};
    its.mortal = {b};
    its.patient = {a};
    its.prepare = [](Stage& stage) { stage.openFirst(2); };
    its.acts = {[](Stage& stage) { stage.receiveFrom(b, 1); }, [](Stage& stage) { stage.send(a); }};
});

const Announced ringerDies("ringer-dies", [](Scenario& its) {
    its.story = "of two senders that the receiver knows one dies; the other's signal must still come";
    its.actors = {"receiver", "sender", "other"};
    its.mortal = {b};
    its.prepare = [](Stage& stage) { stage.openAcquainted(3); };
    its.acts = {[](Stage& stage) { stage.receiveFrom(c, 2); }, [](Stage& stage) { stage.send(a); },
                [](Stage& stage) { stage.send(a); }};
});

const Announced receiverDies("receiver-dies", [](Scenario& its) {
    its.story = "a receiver dies anywhere in its receives; the sender goes on, and is told";
    its.actors = {"sender", "receiver"};
    its.mortal = {b};
    its.prepare = [](Stage& stage) {
        stage.openFirst(2);
        stage.as(a);
        stage.supervise(b);
        stage.send(b);
        stage.drain(b);
        stage.drain(a);
    };
    its.acts = {[](Stage& stage) {
                    stage.send(b);
                    stage.send(b);
                    stage.receiveUntilNotice(b);
                },
                [](Stage& stage) {
                    stage.receiveFrom(a, 3);
                    stage.die();
                }};
});

const Announced relayDies("relay-dies", [](Scenario& its) {
    its.story = "one who hands the same block on dies anywhere; it is with one of the three and never with two";
    its.actors = {"origin", "relay", "target"};
    its.mortal = {b};
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(a);
        stage.send(c, b);
        stage.as(b);
        stage.relay();
        stage.drain(c);
        stage.drain(a);
        stage.as(c);
        stage.supervise(b);
    };
    its.acts = {[](Stage& stage) { stage.send(c, b); },
                [](Stage& stage) {
                    stage.relay();
                    stage.die();
                },
                [](Stage& stage) { stage.receiveUntilNotice(b); }};
});

const Announced reaperDies("reaper-dies", [](Scenario& its) {
    its.story = "an endpoint has died with blocks of every kind; who reaps it dies anywhere, and the next finishes";
    its.actors = {"dead", "reaper", "next"};
    its.mortal = {b};
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(b);
        stage.supervise(a);
        stage.send(a);
        stage.as(c);
        stage.supervise(a);
        stage.send(a);
        stage.as(a);
        stage.receive(false);
        stage.keep();
        stage.send(b);
        stage.send(c);
        stage.killNow(a);
    };
    its.acts = {[](Stage&) {},
                [](Stage& stage) {
                    stage.receiveUntilNotice(a);
                    stage.die();
                },
                [](Stage& stage) { stage.receiveUntilNotice(a); }};
});

const Announced linkChanges("link-changes", [](Scenario& its) {
    its.story =
        "a dead sender is reaped while a relay hands its last signal on and gives back the one that led to it";
    its.actors = {"relay", "dead", "reaper"};
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(b);
        stage.send(c, a);
        stage.as(a);
        stage.relay();
        stage.as(c);
        stage.supervise(b);
        stage.send(a);
        stage.drain(c);
        stage.drain(a);
        stage.as(b);
        stage.send(c, a);
        stage.as(c);
        stage.send(a);
        stage.killNow(b);
    };
    its.acts = {[](Stage& stage) {
                    stage.relay();
                    stage.receiveFrom(c, 2);
                },
                [](Stage&) {}, [](Stage& stage) { stage.receiveUntilNotice(b); }};
});

const Announced deadIsReaped("dead-is-reaped", [](Scenario& its) {
    its.story =
        "a receiver has died and is reaped while somebody sends to it, who may die too: the block stays with the "
        "sender";
    its.actors = {"sender", "dead", "reaper"};
    its.mortal = {a};
    its.prepare = [](Stage& stage) {
        stage.openFirst(3);
        stage.as(a);
        stage.send(b);
        stage.drain(b);
        stage.as(c);
        stage.supervise(b);
        stage.killNow(b);
    };
    its.acts = {[](Stage& stage) {
                    stage.send(b);
                    stage.keep();
                },
                [](Stage&) {},
                [](Stage& stage) {
                    stage.receiveUntilNotice(b);
                    stage.keep();
                }};
});

const Announced answerAndDie("answer-and-die", [](Scenario& its) {
    its.story = "one dies anywhere in its answer, while the next signal to it is sent, and another has the domain lock";
    its.actors = {"asker", "answerer", "opener"};
    its.mortal = {b};
    its.stoppable = {c};
    its.patient = {a};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(2);
        stage.as(a);
        stage.send(b);
    };
    its.acts = {[](Stage& stage) {
                    stage.send(b);
                    stage.pollFrom(b, 2);
                },
                [](Stage& stage) {
                    stage.receiveFrom(a, 2);
                    stage.send(a);
                },
                [](Stage& stage) { stage.open(c); }};
});

const Announced endWhileBusy("end-while-busy", [](Scenario& its) {
    its.story = "signals keep coming; the end of who is supervised is told nevertheless, before what is sent later";
    its.actors = {"receiver", "sender", "dead"};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(2);
        stage.as(c);
        stage.open(c);
        stage.as(a);
        stage.supervise(c);
        stage.as(b);
        for (unsigned i = 0; i < 3; ++i) stage.send(a);
        stage.killNow(c);
    };
    its.acts = {[](Stage& stage) {
                    stage.passTick();
                    stage.receiveFrom(b, 2);
                    stage.say(b);
                    stage.awaitWord();
                    stage.receiveFrom(b, 4);
                    stage.receive();
                    stage.expectNotice(c);
                },
                [](Stage& stage) {
                    stage.awaitWord();
                    stage.send(a);
                    stage.say(a);
                },
                [](Stage&) {}};
});

const Announced closeWhileBusy("close-while-busy", [](Scenario& its) {
    its.story =
        "signals keep coming to a poll loop; one who is supervised closes, while a forked process has a copy of it";
    its.actors = {"receiver", "sender", "closing"};
    its.prepare = [](Stage& stage) {
        stage.openAcquainted(2);
        stage.as(c);
        stage.open(c);
        stage.fork(c);
        stage.as(a);
        stage.supervise(c);
        stage.as(b);
        for (unsigned i = 0; i < 3; ++i) stage.send(a);
        stage.as(c);
        stage.close();
    };
    its.acts = {[](Stage& stage) {
                    stage.passTick();
                    stage.pollFrom(b, 2);
                    stage.say(b);
                    stage.awaitWord();
                    stage.pollFrom(b, 5);
                    stage.expectNotice(c);
                },
                [](Stage& stage) {
                    stage.awaitWord();
                    stage.send(a);
                    stage.say(a);
                },
                [](Stage&) {}};
});

}  // namespace
}  // namespace model
