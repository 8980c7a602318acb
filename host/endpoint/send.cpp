#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/clock.h"
#include "host/arena/slot_table.h"
#include "host/endpoint/at_once.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/recovery/retire.h"

namespace linx {
namespace {

constexpr uint32_t longestStride = 7;

}  // namespace

int Endpoint::send(LinxSignal** signal, Spid to) {
    const Held held = find(*signal);
    if (held.block == nullptr) {
        errno = EINVAL;
        return -1;
    }
    *signal = nullptr;
    --held_;
    Peer* peer = peers_.find(to);
    if (peer != nullptr) return push(held, *peer);
    return to == spid_ ? sendToSelf(held) : sendToStranger(held, to);
}

int Endpoint::sendToSelf(const Held& held) {
    return isOpen(arena(), spid_) ? queueOwn(held, spid_) : refuse(held, ECONNRESET);
}

/// Sends to an endpoint that this one has not talked to yet.
int Endpoint::sendToStranger(const Held& held, Spid to) {
    if (!isOpen(arena(), to)) return refuse(held, everExisted(arena(), to) ? ECONNRESET : ESRCH);
    Peer* peer = acquaint(to);
    const int result = peer == nullptr ? refuse(held, errno) : push(held, *peer);
    settle();
    return result;
}

int Endpoint::push(const Held& held, Peer& peer) {
    return finish(held, peer, post(held, peer, [&](Slot& target) {
                      return introduction::push(target, peer.doorbell.get(), spid_, *held.block, held.ref,
                                                peer.introducedAt);
                  }));
}

[[gnu::always_inline]] inline int Endpoint::finish(const Held& held, Peer& peer, Posted posted) {
    switch (posted) {
        case Posted::done:
            return 0;
        case Posted::refused:
            return returnToSender(held, peer);
        case Posted::wantsRing:
            return ring(held, peer);
        case Posted::wantsReminder:
            return remind(peer) ? 0 : bounce(held, peer);
    }
    return 0;
}

int Endpoint::finishSend(Posted posted) {
    const int result = finish(recent_, *peers_.latest(), posted);
    exit();
    return result;
}

/// The peer has been sent a signal and asks to be rung. Result of the send.
int Endpoint::ring(const Held& held, Peer& peer) {
    slot().rings.storeRelaxed(slot().rings.loadRelaxed() + 1);
    peers_.noteUnrung(nullptr);
    const int result = wake_state::ring(peer.slot.wakeState, peer.slot.wakeState.loadSeqCst(), peer.spid,
                                        indexOf(spid_), [&] { return doorbell::ring(peer.doorbell.get()); });
    if (result == 0) return 0;
    if (doorbell::isDead(peer.doorbell.get())) return bounce(held, peer);
    oweRing();
    settle();  // has this endpoint called to pay, whatever it waits on
    return 0;
}

/// A signal was pushed onto the mailbox of one who has died.
int Endpoint::bounce(const Held& held, Peer& peer) {
    // The peer may have received the signal, and ended, since the push: then the signal has been sent. Otherwise it
    // lies in the mailbox and goes with the peer. It is dead, so this is the last that it wrote (Q).
    const bool unread = held.block->owner.loadAcquire() == (peer.spid | ownerInFlight);
    buryIfPossible(indexOf(peer.spid));
    reapDead(DomainLock::Patience::tryOnce);
    settle();
    if (!unread) return 0;
    slot().dropped.add(1);
    errno = ECONNRESET;
    return -1;
}

/// A signal could not be pushed, since the peer has ended, or is about to: then it still has its name, and whoever is
/// told of its end by now might find it again.
int Endpoint::returnToSender(const Held& held, Peer& peer) {
    if (!isOpen(arena(), peer.spid)) buryIfPossible(indexOf(peer.spid));
    const int result = refuse(held, ECONNRESET);
    settle();
    return result;
}

/// The signal cannot be sent, kept or delivered for `reason`: frees it and says so.
int Endpoint::refuse(const Held& held, int reason) {
    slot().dropped.add(1);
    held.block->owner.storeRelaxed(spid_);
    discard(held);
    errno = reason;
    return -1;
}

/// There is a backlog in the peer's mailbox, and it did not ask to be rung. It is rung nevertheless, at most once a
/// tick of the kernel (of many sends in one tick fewer and fewer ask the clock): it may have died, which its doorbell
/// tells, or somebody has garbled its wake state and it sleeps. False when it has died.
bool Endpoint::remind(Peer& peer) {
    const uint64_t now = coarseMilliseconds();
    const bool sameTick = peer.lookedAt == now;
    peer.lookedAt = now;
    peer.stride = sameTick ? std::min(2 * peer.stride + 1, longestStride) : 0;
    peer.unasked = peer.stride;
    return sameTick || doorbell::ring(peer.doorbell.get()) == 0 || !doorbell::isDead(peer.doorbell.get());
}

}  // namespace linx
