#include "models/scenarios/scenario.h"
#include "models/scenarios/stage.h"

namespace model {
namespace {

constexpr unsigned a = 0;
constexpr unsigned b = 1;
constexpr unsigned c = 2;

const Announced senderDies(Scenario{
    "sender-dies",
    "a sender dies anywhere in two sends; who supervises it gets what it sent, then the notice",
    {"receiver", "sender"},
    1u << b,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(2);
        stage.as(a);
        stage.supervise(b);
        stage.as(b);
        stage.send(a);
        stage.drain(a);
    },
    {[](Stage& stage) { stage.receiveUntilNotice(b); },
     [](Stage& stage) {
         stage.send(a);
         stage.send(a);
         stage.die();
     }},
});

const Announced strangerDies(Scenario{
    "stranger-dies",
    "a sender whom nobody supervises dies in its first send; what it has sent must still come",
    {"receiver", "sender"},
    1u << b,
    1u << a,
    "0",
    true,
    [](Stage& stage) { stage.openFirst(2); },
    {[](Stage& stage) { stage.receiveFrom(b, 1); }, [](Stage& stage) { stage.send(a); }},
});

const Announced ringerDies(Scenario{
    "ringer-dies",
    "of two senders that the receiver knows one dies; the other's signal must still come",
    {"receiver", "sender", "other"},
    1u << b,
    0,
    "0",
    true,
    [](Stage& stage) { stage.openAcquainted(3); },
    {[](Stage& stage) { stage.receiveFrom(c, 2); }, [](Stage& stage) { stage.send(a); },
     [](Stage& stage) { stage.send(a); }},
});

const Announced receiverDies(Scenario{
    "receiver-dies",
    "a receiver dies anywhere in its receives; the sender goes on, and is told",
    {"sender", "receiver"},
    1u << b,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(2);
        stage.as(a);
        stage.supervise(b);
        stage.send(b);
        stage.drain(b);
        stage.drain(a);
    },
    {[](Stage& stage) {
         stage.send(b);
         stage.send(b);
         stage.receiveUntilNotice(b);
     },
     [](Stage& stage) {
         stage.receiveFrom(a, 3);
         stage.die();
     }},
});

const Announced relayDies(Scenario{
    "relay-dies",
    "one who hands the same block on dies anywhere; it is with one of the three and never with two",
    {"origin", "relay", "target"},
    1u << b,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(3);
        stage.as(a);
        stage.send(c, b);
        stage.as(b);
        stage.relay();
        stage.drain(c);
        stage.drain(a);
        stage.as(c);
        stage.supervise(b);
    },
    {[](Stage& stage) { stage.send(c, b); },
     [](Stage& stage) {
         stage.relay();
         stage.die();
     },
     [](Stage& stage) { stage.receiveUntilNotice(b); }},
});

const Announced reaperDies(Scenario{
    "reaper-dies",
    "an endpoint has died with blocks of every kind; who reaps it dies anywhere, and the next finishes",
    {"dead", "reaper", "next"},
    1u << b,
    0,
    "0",
    true,
    [](Stage& stage) {
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
    },
    {[](Stage&) {},
     [](Stage& stage) {
         stage.receiveUntilNotice(a);
         stage.die();
     },
     [](Stage& stage) { stage.receiveUntilNotice(a); }},
});

const Announced linkChanges(Scenario{
    "link-changes",
    "a dead sender is reaped while a relay hands its last signal on and gives back the one that led to it",
    {"relay", "dead", "reaper"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) {
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
    },
    {[](Stage& stage) {
         stage.relay();
         stage.receiveFrom(c, 2);
     },
     [](Stage&) {}, [](Stage& stage) { stage.receiveUntilNotice(b); }},
});

const Announced deadIsReaped(Scenario{
    "dead-is-reaped",
    "a receiver has died and is reaped while somebody sends to it, who may die too: the block stays with the sender",
    {"sender", "dead", "reaper"},
    1u << a,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openFirst(3);
        stage.as(a);
        stage.send(b);
        stage.drain(b);
        stage.as(c);
        stage.supervise(b);
        stage.killNow(b);
    },
    {[](Stage& stage) {
         stage.send(b);
         stage.keep();
     },
     [](Stage&) {},
     [](Stage& stage) {
         stage.receiveUntilNotice(b);
         stage.keep();
     }},
});

const Announced endWhileBusy(Scenario{
    "end-while-busy",
    "signals keep coming; the end of who is supervised is told nevertheless, before what is sent later",
    {"receiver", "sender", "dead"},
    0,
    0,
    "0",
    true,
    [](Stage& stage) {
        stage.openAcquainted(2);
        stage.as(c);
        stage.open(c);
        stage.as(a);
        stage.supervise(c);
        stage.as(b);
        for (unsigned i = 0; i < 3; ++i) stage.send(a);
        stage.killNow(c);
    },
    {[](Stage& stage) {
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
     [](Stage&) {}},
});

}  // namespace
}  // namespace model
