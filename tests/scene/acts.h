#ifndef LINXIPC_TESTS_SCENE_ACTS_H
#define LINXIPC_TESTS_SCENE_ACTS_H

#include <memory>
#include <vector>

#include "tests/kit/child.h"
#include "tests/scene/scene.h"

namespace scene {

/// The process that something befalls, as far as it has come.
struct Victim {
    const Progress* progress = nullptr;
    bool again = false;  ///< it has done the operation once: the bystanders are in no particular state any more
    LINX* linx = nullptr;
    std::vector<LINX*> others;  ///< further endpoints
    LinxSpid conductor = 0;
    LinxSpid mirror = 0;
    LinxSpid corpse = 0;
    LinxSpid stranger = 0;
    std::vector<LinxSignal*> signals;
    LinxRef timeout = 0;
    int descriptor = -1;            ///< to wait on
    std::shared_ptr<Child> helper;  ///< a process that stands by
    uint32_t parcels = 0;           ///< that have been sent to the bystanders
    uint32_t giftsDue = 0;          ///< that a bystander has sent, or has been asked for
    uint32_t giftsTaken = 0;        ///< the same, received
};

/// 0, or the errno value that tells why an operation has failed.
int resultOf(bool done);

/// Opens the victim's endpoint. Nothing is due to it yet.
void open(Victim& victim);

/// Asks the first bystander for gifts.
void askForGifts(Victim& victim);

/// Opens an endpoint that has much to leave behind. Returns its spid.
LinxSpid becomeCorpse();

constexpr uint32_t small = 64;
constexpr uint32_t large = 60000;

/// A signal with what a bystander expects to be in it.
LinxSignal* allocate(const Victim& victim, uint32_t bytes = small, uint32_t number = parcel);

/// Receives any signal, waiting for it at most so long, and keeps account. Null when there is none; `failure` is then
/// 0 or an errno value.
LinxSignal* take(Victim& victim, uint32_t milliseconds, int& failure);

/// Returns once the wake state of `whom` is such.
void awaitWakeState(LinxSpid whom, uint32_t state);

// To prepare an operation.
void nothing(Victim& victim);
void holdOne(Victim& victim);
void holdLarge(Victim& victim);
void holdForeign(Victim& victim);
void holdOneForSleeper(Victim& victim);
void emptyQueue(Victim& victim);
void haveTimeout(Victim& victim);
void haveDueTimeout(Victim& victim);
void haveMuch(Victim& victim);
void lend(Victim& victim);
void cutArena(Victim& victim);
void soilArena(Victim& victim);

template <uint32_t state>
void holdOneUntil(Victim& victim) {
    holdOne(victim);
    if (!victim.again) awaitWakeState(victim.conductor, state);
}

/// Of the signals held, the first one. 0 or an errno value.
int sendTo(Victim& victim, LinxSpid to);
int attachTo(Victim& victim, LinxSpid spid);

// Operations: 0 or an errno value.
int openSelf(Victim& victim);
int openLink(Victim& victim);
int openCorpse(Victim& victim);
int openOther(Victim& victim, const char* name);
int close(Victim& victim);
int huntMirror(Victim& victim);
int huntNobody(Victim& victim);
int huntBehindMirror(Victim& victim);
int allocateSmall(Victim& victim);
int allocateLarge(Victim& victim);
int allocateMany(Victim& victim);
int sendToConductor(Victim& victim);
int sendToMirror(Victim& victim);
int sendToCorpse(Victim& victim);
int receiveAny(Victim& victim);
int freeAll(Victim& victim);
int attachMirror(Victim& victim);
int attachCorpse(Victim& victim);
int askTimeout(Victim& victim);
int cancelTimeout(Victim& victim);

}  // namespace scene

#endif
