#include "tests/crash/operations.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/arena/domain.h"
#include "host/mailbox/announced_stack.h"
#include "host/mailbox/attention.h"

namespace crash {
namespace {

constexpr uint32_t anySignal[] = {0};
constexpr uint32_t small = 64;
constexpr uint32_t large = 60000;

LinxSignal* allocate(const Victim& victim, uint32_t bytes = small, uint32_t number = parcel) {
    LinxSignal* signal = linx_alloc(victim.linx, static_cast<uint32_t>(sizeof(LinxSignal)) + bytes, number);
    EXPECT_NE(nullptr, signal);
    if (signal == nullptr) return nullptr;
    const Bytes content = pattern(bytes, parcel);
    std::memcpy(payloadOf(signal), content.data(), bytes);
    return signal;
}

LinxSignal* take(const Victim& victim) {
    LinxSignal* signal = nullptr;
    linx_receive_w_tmo(victim.linx, &signal, patience, anySignal);
    return signal;
}

void holdOne(Victim& victim) {
    victim.signals = {allocate(victim)};
}
void holdLarge(Victim& victim) {
    for (int i = 0; i < 3; ++i) victim.signals.push_back(allocate(victim, large));
}
void holdForeign(Victim& victim) {
    for (uint32_t i = 0; i < gifts; ++i) victim.signals.push_back(take(victim));
}
void nothing(Victim&) {}

/// Returns once the attention of `whom` is such.
void awaitAttention(LinxSpid whom, uint32_t state) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Slot& slot = domain->arena().slot(linx::indexOf(whom));
    while (linx::attention::stateOf(slot.attention.loadAcquire()) != state) sched_yield();
}

template <uint32_t state>
void holdOneUntil(Victim& victim) {
    holdOne(victim);
    awaitAttention(victim.conductor, state);
}

/// The mirror sleeps, and knows the victim from an earlier signal that it has taken.
void holdOneForSleeper(Victim& victim) {
    LinxSignal* signal = allocate(victim);
    linx_send(victim.linx, &signal, victim.mirror);
    awaitAttention(victim.mirror, linx::attention::quiet);
    holdOne(victim);
}

void openSelf(Victim& victim) {
    victim.linx = linx_open(victimName, 0, nullptr);
}
void openCorpse(Victim&) {
    linx_open("corpse", 0, nullptr);
}
void huntMirror(Victim& victim) {
    linx_hunt(victim.linx, "mirror", nullptr);
}
void huntNobody(Victim& victim) {
    linx_hunt(victim.linx, "nobody", nullptr);
}
void allocateSmall(Victim& victim) {
    linx_alloc(victim.linx, small, parcel);
}
void allocateLarge(Victim& victim) {
    linx_alloc(victim.linx, large, parcel);
}
void sendToConductor(Victim& victim) {
    linx_send(victim.linx, &victim.signals[0], victim.conductor);
}
void sendToCorpse(Victim& victim) {
    linx_send(victim.linx, &victim.signals[0], victim.corpse);
}
void receiveAny(Victim& victim) {
    LinxSignal* signal = nullptr;
    linx_receive_w_tmo(victim.linx, &signal, 1, anySignal);
}
void emptyQueue(Victim& victim) {
    while (receive(victim.linx, 1)) {
    }
}
void freeAll(Victim& victim) {
    for (LinxSignal*& signal : victim.signals) linx_free_buf(victim.linx, &signal);
}
void freeHome(Victim& victim) {
    linx_free_buf(victim.linx, &victim.signals[0]);
}
void sendToMirror(Victim& victim) {
    linx_send(victim.linx, &victim.signals[0], victim.mirror);
}
void attachMirror(Victim& victim) {
    linx_attach(victim.linx, &victim.signals[0], victim.mirror);
}
void attachCorpse(Victim& victim) {
    linx_attach(victim.linx, &victim.signals[0], victim.corpse);
}
void askTimeout(Victim& victim) {
    victim.timeout = linx_request_tmo(victim.linx, 100000, nullptr);
}
void askShortTimeout(Victim& victim) {
    emptyQueue(victim);
    victim.timeout = linx_request_tmo(victim.linx, 0, nullptr);
}
void cancelTimeout(Victim& victim) {
    linx_cancel_tmo(victim.linx, &victim.timeout);
}

/// One signal of each kind that an endpoint may have at its end.
void haveMuch(Victim& victim) {
    victim.signals = {allocate(victim), allocate(victim, large)};
    LinxSignal* signal = allocate(victim);
    linx_attach(victim.linx, &signal, victim.mirror);
    askTimeout(victim);
    huntNobody(victim);
    signal = allocate(victim);
    linx_send(victim.linx, &signal, spidOf(victim.linx));
}
void close(Victim& victim) {
    linx_close(victim.linx);
}

/// Some that the conductor gives back, so that the next allocations take the stack of returned blocks.
void lend(Victim& victim) {
    for (int i = 0; i < 3; ++i) {
        LinxSignal* signal = allocate(victim);
        linx_send(victim.linx, &signal, victim.conductor);
    }
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Slot& slot = domain->arena().slot(linx::indexOf(spidOf(victim.linx)));
    while (slot.returned.loadAcquire() == linx::stack::empty) sched_yield();
}
void allocateMany(Victim& victim) {
    for (int i = 0; i < 24; ++i) linx_alloc(victim.linx, small, parcel);
}

/// All of the arena cut into blocks of one size, all of them common: only reclaiming makes room for another size.
void cutArena(Victim& victim) {
    std::vector<LINX*> others;
    for (int i = 0; i < 4; ++i) others.push_back(linx_open(("other" + std::to_string(i)).c_str(), 0, nullptr));
    for (LINX* other : others) {
        while (linx_alloc(other, 16000, gift) != nullptr) {
        }
    }
    for (LINX* other : others) linx_close(other);
    emptyQueue(victim);
}

}  // namespace

void open(Victim& victim) {
    victim.linx = linx_open(victimName, 0, nullptr);
    ASSERT_NE(nullptr, victim.linx);
    victim.mirror = ::hunt(victim.linx, "mirror");
    victim.conductor = ::hunt(victim.linx, "conductor");
}

LinxSpid becomeCorpse() {
    LINX* linx = linx_open("corpse", 0, nullptr);
    const LinxSpid mirror = ::hunt(linx, "mirror");
    for (int i = 0; i < 4; ++i) EXPECT_NE(nullptr, linx_alloc(linx, small, gift));
    EXPECT_EQ(0, send(linx, spidOf(linx), gift));
    EXPECT_NE(0u, attach(linx, mirror, notice));
    EXPECT_EQ(0, linx_hunt(linx, "nobody", nullptr));
    return spidOf(linx);
}

const std::vector<Operation> operations = {
    {"open", Stance::working, "1000", true, Corpse::none, nothing, openSelf},
    {"open, a hunter asleep", Stance::asleep, "0", true, Corpse::none, nothing, openSelf},
    {"open after a dead one", Stance::working, "1000", false, Corpse::atRest, nothing, openCorpse},
    {"open, mending", Stance::working, "1000", false, Corpse::holdingLock, nothing, openCorpse},
    {"hunt, answered", Stance::working, "1000", false, Corpse::none, nothing, huntMirror},
    {"hunt, pending", Stance::working, "1000", false, Corpse::none, nothing, huntNobody},
    {"alloc", Stance::working, "1000", false, Corpse::none, nothing, allocateSmall},
    {"alloc, many", Stance::working, "1000", false, Corpse::none, lend, allocateMany},
    {"alloc, leasing", Stance::working, "1000", false, Corpse::none, nothing, allocateLarge},
    {"alloc, reclaiming", Stance::working, "1000", false, Corpse::none, cutArena, allocateLarge},
    {"send, receiver asleep", Stance::away, "0", false, Corpse::none, holdOneForSleeper, sendToMirror},
    {"send, supervisor asleep", Stance::asleep, "0", false, Corpse::none, holdOneUntil<linx::attention::quiet>,
     sendToConductor},
    {"send, receiver looking", Stance::working, "1000", false, Corpse::none, holdOneUntil<linx::attention::looking>,
     sendToConductor},
    {"send, receiver busy", Stance::away, "1000", false, Corpse::none, holdOneUntil<linx::attention::rung>,
     sendToConductor},
    {"send to a dead one", Stance::working, "1000", false, Corpse::atRest, holdOne, sendToCorpse},
    {"receive", Stance::working, "1000", false, Corpse::none, nothing, receiveAny},
    {"receive, in vain", Stance::working, "0", false, Corpse::none, emptyQueue, receiveAny},
    {"pass on", Stance::working, "1000", false, Corpse::none, holdForeign, sendToMirror},
    {"free at home", Stance::working, "1000", false, Corpse::none, holdOne, freeHome},
    {"free at home, too much", Stance::working, "1000", false, Corpse::none, holdLarge, freeAll},
    {"free away", Stance::working, "1000", false, Corpse::none, holdForeign, freeAll},
    {"attach", Stance::working, "1000", false, Corpse::none, holdOne, attachMirror},
    {"attach to a dead one", Stance::working, "1000", false, Corpse::atRest, holdOne, attachCorpse},
    {"time-out", Stance::working, "1000", false, Corpse::none, nothing, askTimeout},
    {"time-out, received", Stance::working, "1000", false, Corpse::none, askShortTimeout, receiveAny},
    {"cancel", Stance::working, "1000", false, Corpse::none, askTimeout, cancelTimeout},
    {"close", Stance::working, "1000", false, Corpse::none, haveMuch, close},
    {"close, supervisor asleep", Stance::asleep, "0", false, Corpse::none, haveMuch, close},
};

}  // namespace crash
