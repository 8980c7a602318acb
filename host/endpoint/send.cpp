#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/endpoint/fast_path.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/recovery/retire.h"
#include "host/system/clock.h"

namespace linx {
namespace {

constexpr uint32_t longestCheckInterval = 7;

}  // namespace

int Endpoint::send(LinxSignal** signal, Spid to) {
    const BlockRef block = find(*signal);
    if (!block) {
        errno = EINVAL;
        return -1;
    }
    *signal = nullptr;
    --held_;
    Peer* peer = peers_.find(to);
    if (peer != nullptr) return push(block, *peer);
    return to == spid_ ? sendToSelf(block) : sendToStranger(block, to);
}

int Endpoint::sendToSelf(const BlockRef& block) {
    return isOpen(arena(), spid_) ? queueOwn(block, spid_) : refuse(block, ECONNRESET);
}

/// Sends to an endpoint that this one has not talked to yet.
int Endpoint::sendToStranger(const BlockRef& block, Spid to) {
    if (!isOpen(arena(), to)) return refuse(block, everExisted(arena(), to) ? ECONNRESET : ESRCH);
    Peer* peer = connect(to);
    const int result = peer == nullptr ? refuse(block, errno) : push(block, *peer);
    updateReadiness();
    return result;
}

int Endpoint::push(const BlockRef& block, Peer& peer) {
    return finish(block, peer, post(block, peer, [&](Slot& target) {
                      return introduction::push(target, peer.doorbell.get(), spid_, *block, block.ref,
                                                peer.introducedAt);
                  }));
}

[[gnu::always_inline]] inline int Endpoint::finish(const BlockRef& block, Peer& peer, Posted posted) {
    switch (posted) {
        case Posted::done:
            return 0;
        case Posted::refused:
            return returnToSender(block, peer);
        case Posted::wantsRing:
            return ring(block, peer);
        case Posted::wantsReminder:
            return remind(peer) ? 0 : failSend(block, peer);
    }
    return 0;
}

int Endpoint::finishSend(Posted posted) {
    const int result = finish(recent_, *peers_.latest(), posted);
    exit();
    return result;
}

/// The peer has been sent a signal and asks to be rung. Result of the send.
int Endpoint::ring(const BlockRef& block, Peer& peer) {
    slot().rings.storeRelaxed(slot().rings.loadRelaxed() + 1);
    peers_.noteUnrung(nullptr);
    const int result = wake_state::ring(peer.slot.wakeState, peer.slot.wakeState.loadSeqCst(), peer.spid,
                                        indexOf(spid_), [&] { return doorbell::ring(peer.doorbell.get()); });
    if (result == 0) return 0;
    if (doorbell::isDead(peer.doorbell.get())) return failSend(block, peer);
    oweRing();
    updateReadiness();  // so that a poll loop comes back to try again
    return 0;
}

/// A signal was pushed onto the mailbox of a peer that has died.
int Endpoint::failSend(const BlockRef& block, Peer& peer) {
    // The peer may have received the signal, and ended, since the push: then the signal has been sent. Otherwise it
    // lies in the mailbox and goes with the peer. It is dead, so this is the last that it wrote (Q).
    const bool unread = block->owner.loadAcquire() == (peer.spid | ownerInFlight);
    onPeerDeathIfRoom(indexOf(peer.spid));
    reapDead(DomainLock::Patience::tryOnce);
    updateReadiness();
    if (!unread) return 0;
    slot().dropped.add(1);
    errno = ECONNRESET;
    return -1;
}

/// A signal could not be pushed, since the peer has ended, or is about to: then it still has its name, and whoever is
/// told of its end by now might find it again.
int Endpoint::returnToSender(const BlockRef& block, Peer& peer) {
    if (!isOpen(arena(), peer.spid)) onPeerDeathIfRoom(indexOf(peer.spid));
    const int result = refuse(block, ECONNRESET);
    updateReadiness();
    return result;
}

/// The signal cannot be sent, kept or delivered for `reason`: frees it and says so.
int Endpoint::refuse(const BlockRef& block, int reason) {
    slot().dropped.add(1);
    block->owner.storeRelaxed(spid_);
    discard(block);
    errno = reason;
    return -1;
}

/// There is a backlog in the peer's mailbox, and it did not ask to be rung. It is rung nevertheless, at most once a
/// tick of the kernel (of many sends in one tick fewer and fewer ask the clock): it may have died, which its doorbell
/// tells, or somebody has garbled its wake state and it sleeps. False when it has died.
bool Endpoint::remind(Peer& peer) {
    const uint64_t now = coarseMilliseconds();
    const bool sameTick = peer.checkedAt == now;
    peer.checkedAt = now;
    peer.checkInterval = sameTick ? std::min(2 * peer.checkInterval + 1, longestCheckInterval) : 0;
    peer.sendsUntilCheck = peer.checkInterval;
    return sameTick || doorbell::ring(peer.doorbell.get()) == 0 || !doorbell::isDead(peer.doorbell.get());
}

}  // namespace linx
