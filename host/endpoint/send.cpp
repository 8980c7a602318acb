#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/clock.h"
#include "host/arena/slot_table.h"
#include "host/endpoint/endpoint.h"
#include "host/mailbox/announced_stack.h"
#include "host/mailbox/attention.h"
#include "host/mailbox/bell.h"
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
    if (peer == nullptr) {
        if (to == spid_) return sendToSelf(held);
        peer = strangerAt(to);
        if (peer == nullptr) return refuse(held, errno);
    }
    return push(held, *peer);
}

/// Whom this endpoint has not talked to yet. Null with errno.
Peer* Endpoint::strangerAt(Spid spid) {
    if (isOpen(arena(), spid)) return peerFor(spid);
    errno = everExisted(arena(), spid) ? ECONNRESET : ESRCH;
    return nullptr;
}

int Endpoint::sendToSelf(const Held& held) {
    return isOpen(arena(), spid_) ? queueOwn(held, spid_) : refuse(held, ECONNRESET);
}

int Endpoint::push(const Held& held, Peer& peer) {
    Slot& own = slot();
    Slot& target = peer.slot;
    // Its mailbox may be another's by now, who would have to throw the signal away. Acquire: as in isOpen.
    if (target.life.loadAcquire() != (peer.spid | lifeOpen)) return refuse(held, ECONNRESET);
    // Before the first push: from then on this process may die before it rings, and the peer must learn of that.
    if (!peer.knowsUs) peer.knowsUs = bell::introduce(peer.bell.get(), spid_);
    own.sending.storeRelease(held.ref);  // (J), after the push before this one
    held.block->sender.storeRelaxed(spid_);
    // Release: (E), the target's reaper looks at blocks that are about to be pushed, and must not find the new owner
    // beside an old sender.
    held.block->owner.storeRelease(peer.spid | ownerTransit);
    const uint32_t before = stack::push(target.mailbox, *held.block, held.ref);
    if (before == stack::closed) {
        held.block->owner.storeRelaxed(spid_);
        return refuse(held, ECONNRESET);
    }
    const uint32_t found = target.attention.loadSeqCst();  // (B), see attention.h
    bool alive = true;
    if (attention::asksForRing(found, peer.spid)) {
        own.rings.storeRelaxed(own.rings.loadRelaxed() + 1);
        alive = attention::ring(target.attention, found, peer.spid, indexOf(spid_),
                                [&] { return bell::ring(peer.bell.get()); }) == 0;
    } else if (before != stack::empty && peer.unasked-- == 0) {
        alive = seemsAlive(peer);
    }
    return alive ? 0 : bounce(held, peer);
}

/// A signal was pushed onto the mailbox of one who has died.
int Endpoint::bounce(const Held& held, Peer& peer) {
    // The peer may have received the signal, and ended, since the push: then the signal has been sent. Otherwise it
    // lies in the mailbox and goes with the peer. Whoever supervises it here is told by the next receive.
    // It is dead, so this is the last that it wrote (Q).
    const bool unread = held.block->owner.loadAcquire() == (peer.spid | ownerTransit);
    reap(*domain_, peer.spid);
    if (!unread) return 0;
    slot().dropped.add(1);
    errno = ECONNRESET;
    return -1;
}

/// The signal cannot be sent, kept or delivered for `reason`: frees it and says so.
int Endpoint::refuse(const Held& held, int reason) {
    slot().dropped.add(1);
    held.block->owner.storeRelaxed(spid_);
    discard(held);
    errno = reason;
    return -1;
}

/// The open endpoint as a peer, met now if it was none. Null with errno: ECONNRESET when it has died, and is reaped.
Peer* Endpoint::peerFor(Spid spid) {
    if (Peer* peer = peers_.find(spid)) return peer;
    Peer* peer = nullptr;
    try {
        peer = meet(spid);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    const int failure = errno;
    settle();  // an earlier user of the slot may have left notices
    // Settling may have greeted somebody for whom the peer just met had to make room.
    Peer* kept = peer == nullptr ? nullptr : peers_.find(spid);
    errno = kept == peer ? failure : EMFILE;
    return kept;
}

Peer* Endpoint::meet(Spid spid) {
    bury(indexOf(spid));  // an earlier user of the slot, whose end has not been noticed yet
    Peer* peer = peers_.meet(spid);
    if (peer == nullptr && errno == ECONNRESET && reap(*domain_, spid)) errno = ECONNRESET;
    return peer;
}

/// A mailbox that nobody empties may be a dead one's; its bell tells. Asked at most once a tick of the kernel, and of
/// many sends in one tick fewer and fewer ask the clock.
bool Endpoint::seemsAlive(Peer& peer) {
    const uint64_t now = coarseMilliseconds();
    const bool sameTick = peer.lookedAt == now;
    peer.lookedAt = now;
    peer.stride = sameTick ? std::min(2 * peer.stride + 1, longestStride) : 0;
    peer.unasked = peer.stride;
    return sameTick || !bell::isDead(peer.bell.get());
}

}  // namespace linx
