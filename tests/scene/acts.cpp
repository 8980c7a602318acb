#include "tests/scene/acts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/arena/domain.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"

namespace scene {
namespace {

int sendParcelTo(Victim& victim, LinxSpid to) {
    const bool isParcel = victim.signals[0]->number == parcel;
    const int result = sendTo(victim, to);
    if (result == 0 && isParcel) ++victim.parcels;
    return result;
}

int allocateOne(Victim& victim, uint32_t size) {
    LinxSignal* signal = linx_alloc(victim.linx, size, parcel);
    if (signal != nullptr) victim.signals.push_back(signal);
    return resultOf(signal != nullptr);
}

int requestTimeout(Victim& victim, uint32_t milliseconds) {
    victim.timeout = linx_request_tmo(victim.linx, milliseconds, nullptr);
    return resultOf(victim.timeout != 0);
}

}  // namespace

int resultOf(bool done) {
    return done ? 0 : errno;
}

void open(Victim& victim) {
    victim.linx = linx_open(victimName, 0, nullptr);
    ASSERT_NE(victim.linx, nullptr) << std::strerror(errno);
    victim.mirror = ::hunt(victim.linx, "mirror");
    victim.conductor = ::hunt(victim.linx, "conductor");
    victim.giftsDue = victim.giftsTaken = 0;
}

void askForGifts(Victim& victim) {
    ASSERT_EQ(send(victim.linx, victim.conductor, ask), 0);
    victim.giftsDue += gifts;
}

LinxSpid becomeCorpse() {
    LINX* linx = linx_open("corpse", 0, nullptr);
    const LinxSpid mirror = ::hunt(linx, "mirror");
    for (int i = 0; i < 4; ++i) EXPECT_NE(linx_alloc(linx, small, gift), nullptr);
    EXPECT_EQ(send(linx, spidOf(linx), gift), 0);
    EXPECT_NE(attach(linx, mirror, notice), 0u);
    EXPECT_EQ(linx_hunt(linx, "nobody", nullptr), 0);
    return spidOf(linx);
}

LinxSignal* allocate(const Victim& victim, uint32_t bytes, uint32_t number) {
    LinxSignal* signal = linx_alloc(victim.linx, static_cast<uint32_t>(sizeof(LinxSignal)) + bytes, number);
    EXPECT_NE(signal, nullptr) << std::strerror(errno);
    if (signal == nullptr) return nullptr;
    const Bytes content = pattern(bytes, parcel);
    std::memcpy(payloadOf(signal), content.data(), bytes);
    return signal;
}

LinxSignal* take(Victim& victim, uint32_t milliseconds, int& failure) {
    LinxSignal* signal = nullptr;
    failure = resultOf(linx_receive_w_tmo(victim.linx, &signal, milliseconds, anySignal) != -1);
    if (signal != nullptr && signal->number == gift) ++victim.giftsTaken;
    return signal;
}

void awaitWakeState(LinxSpid whom, uint32_t state) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Slot& slot = domain->arena().slot(linx::indexOf(linx::Spid{whom}));
    while (linx::wake_state::stateOf(slot.wakeState.loadAcquire()) != state) sched_yield();
}

int sendTo(Victim& victim, LinxSpid to) {
    const int result = resultOf(linx_send(victim.linx, &victim.signals[0], to) == 0);
    EXPECT_EQ(victim.signals[0], nullptr) << "a signal that was sent";
    victim.signals.erase(victim.signals.begin());
    return result;
}

int attachTo(Victim& victim, LinxSpid spid) {
    const int result = resultOf(linx_attach(victim.linx, &victim.signals[0], spid) != 0);
    EXPECT_EQ(victim.signals[0], nullptr) << "a notice";
    victim.signals.erase(victim.signals.begin());
    return result;
}

void nothing(Victim&) {}

void holdOne(Victim& victim) {
    victim.signals.push_back(allocate(victim));
}

void holdLarge(Victim& victim) {
    for (int i = 0; i < 3; ++i) victim.signals.push_back(allocate(victim, large));
}

void holdForeign(Victim& victim) {
    if (victim.giftsTaken == victim.giftsDue) askForGifts(victim);
    while (victim.giftsTaken < victim.giftsDue) {
        int failure;
        LinxSignal* signal = take(victim, patience, failure);
        ASSERT_NE(signal, nullptr) << "a gift is lost: " << std::strerror(failure);
        victim.signals.push_back(signal);
    }
}

/// The mirror sleeps, and knows the victim from an earlier signal that it has taken.
void holdOneForSleeper(Victim& victim) {
    holdOne(victim);
    EXPECT_EQ(sendToMirror(victim), 0);
    if (!victim.again) awaitWakeState(victim.mirror, linx::wake_state::parked);
    holdOne(victim);
}

void emptyQueue(Victim& victim) {
    int failure;
    while (LinxSignal* signal = take(victim, 1, failure)) linx_free_buf(victim.linx, &signal);
    EXPECT_EQ(failure, 0);
}

void haveTimeout(Victim& victim) {
    EXPECT_EQ(askTimeout(victim), 0);
}

void haveDueTimeout(Victim& victim) {
    emptyQueue(victim);
    EXPECT_EQ(requestTimeout(victim, 0), 0);
}

/// One signal of each kind that an endpoint may have at its end.
void haveMuch(Victim& victim) {
    victim.signals = {allocate(victim), allocate(victim, large)};
    LinxSignal* signal = allocate(victim);
    linx_attach(victim.linx, &signal, victim.mirror);
    haveTimeout(victim);
    huntNobody(victim);
    signal = allocate(victim);
    linx_send(victim.linx, &signal, spidOf(victim.linx));
}

/// Some that the conductor gives back, so that the next allocations take the stack of returned blocks.
void lend(Victim& victim) {
    for (int i = 0; i < 3; ++i) {
        holdOne(victim);
        EXPECT_EQ(sendToConductor(victim), 0);
    }
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Slot& slot = domain->arena().slot(linx::indexOf(linx::Spid{spidOf(victim.linx)}));
    while (!linx::stack::holdsBlocks(slot.returned.loadAcquire())) sched_yield();
}

/// All of the arena cut into blocks of one size, all of them in the central lists: only reclaiming makes room for
/// another size.
void cutArena(Victim& victim) {
    std::vector<LINX*> others;
    for (int i = 0; i < 4; ++i) others.push_back(linx_open(("other" + std::to_string(i)).c_str(), 0, nullptr));
    for (LINX* other : others) {
        while (LinxSignal* signal = linx_alloc(other, 16000, gift)) std::memset(payloadOf(signal), 0x5a, 15996);
    }
    for (LINX* other : others) linx_close(other);
    emptyQueue(victim);
}

/// The same, and then the room made: the pages that are leased next hold what was in signals.
void soilArena(Victim& victim) {
    cutArena(victim);
    EXPECT_EQ(allocateLarge(victim), 0);
    EXPECT_EQ(freeAll(victim), 0);
}

int openSelf(Victim& victim) {
    victim.linx = linx_open(victimName, 0, nullptr);
    return resultOf(victim.linx != nullptr);
}

int openLink(Victim& victim) {
    victim.linx = linx_open(victimName, LINX_OPEN_LINK, nullptr);
    return resultOf(victim.linx != nullptr);
}

int openCorpse(Victim& victim) {
    return openOther(victim, "corpse");
}

int openOther(Victim& victim, const char* name) {
    LINX* other = linx_open(name, 0, nullptr);
    if (other != nullptr) victim.others.push_back(other);
    return resultOf(other != nullptr);
}

int close(Victim& victim) {
    const int result = resultOf(linx_close(victim.linx) == 0);
    victim.linx = nullptr;
    victim.signals.clear();
    return result;
}

int huntMirror(Victim& victim) {
    return resultOf(linx_hunt(victim.linx, "mirror", nullptr) == 0);
}

int huntNobody(Victim& victim) {
    return resultOf(linx_hunt(victim.linx, "nobody", nullptr) == 0);
}

int huntBehindMirror(Victim& victim) {
    return resultOf(linx_hunt(victim.linx, "mirror/nobody", nullptr) == 0);
}

int allocateSmall(Victim& victim) {
    return allocateOne(victim, small);
}

int allocateLarge(Victim& victim) {
    return allocateOne(victim, large);
}

int allocateMany(Victim& victim) {
    int result = 0;
    for (int i = 0; i < 24 && result == 0; ++i) result = allocateSmall(victim);
    return result;
}

int sendToConductor(Victim& victim) {
    return sendParcelTo(victim, victim.conductor);
}

int sendToMirror(Victim& victim) {
    return sendParcelTo(victim, victim.mirror);
}

int sendToCorpse(Victim& victim) {
    return sendTo(victim, victim.corpse);
}

int receiveAny(Victim& victim) {
    int failure;
    if (LinxSignal* signal = take(victim, 1, failure)) victim.signals.push_back(signal);
    return failure;
}

int freeAll(Victim& victim) {
    int result = 0;
    for (LinxSignal*& signal : victim.signals) {
        const int one = resultOf(linx_free_buf(victim.linx, &signal) == 0);
        if (one != 0) result = one;
    }
    victim.signals.clear();
    return result;
}

int attachMirror(Victim& victim) {
    return attachTo(victim, victim.mirror);
}

int attachCorpse(Victim& victim) {
    return attachTo(victim, victim.corpse);
}

int askTimeout(Victim& victim) {
    return requestTimeout(victim, 100000);
}

int cancelTimeout(Victim& victim) {
    return resultOf(linx_cancel_tmo(victim.linx, &victim.timeout) == 0);
}

}  // namespace scene
