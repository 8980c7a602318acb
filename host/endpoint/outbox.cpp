#include "host/endpoint/outbox.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/arena/slot_table.h"
#include "host/mailbox/doorbell.h"
#include "host/system/clock.h"

namespace linx {
namespace {

constexpr uint32_t longestCheckInterval = 7;

}  // namespace

int Outbox::sendToPeer(const BlockRef& block, Peer& peer) {
    return finish(block, peer, post(block, peer, [&](Slot& target) {
                      return introduction::push(target, peer.doorbell.get(), self_.spid, block, peer.introducedAt);
                  }));
}

int Outbox::sendToStranger(const BlockRef& block, Spid to) {
    if (!isOpen(self_.arena(), to)) {
        return signals_.refuse(block, everExisted(self_.arena(), to) ? ECONNRESET : ESRCH);
    }
    if (to == self_.spid) return inbox_.append(block, to);
    Peer* peer = peers_.connect(to);
    if (peer != nullptr) return sendToPeer(block, *peer);
    const int failure = errno;
    peers_.reapDeadIfDue();
    return signals_.refuse(block, failure);
}

/// The peer has been sent a signal and asks to be rung. Result of the send.
int Outbox::ring(const BlockRef& block, Peer& peer) {
    self_.slot.rings.storeRelaxed(self_.slot.rings.loadRelaxed() + 1);
    unrung_ = Spid::none;
    const int doorbell = peer.doorbell.get();
    const int result =
        wake_state::ringIfAsked(peer.slot, peer.spid, indexOf(self_.spid), [&] { return doorbell::ring(doorbell); });
    if (result == 0) return 0;
    if (doorbell::isDead(doorbell)) return fail(block, peer);
    chores_.oweRing();
    return 0;
}

/// A signal was pushed onto the mailbox of a peer that has died.
int Outbox::fail(const BlockRef& block, const Peer& peer) {
    // The peer may have received the signal, and ended, since the push: then the signal has been sent. Otherwise it
    // lies in the mailbox and goes with the peer. It is dead, so this is the last that it wrote [death].
    const bool unread = block->owner.loadAcquire() == inFlightTo(peer.spid);
    peers_.end(peer);
    peers_.reapDeadIfDue();
    if (!unread) return 0;
    self_.slot.dropped.add(1);
    errno = ECONNRESET;
    return -1;
}

/// A signal could not be pushed, since the peer has ended, or is about to: then it still has its name, and whoever is
/// told of its end by now might find it again.
int Outbox::returnToSender(const BlockRef& block, const Peer& peer) {
    if (!isOpen(self_.arena(), peer.spid)) peers_.end(peer);
    return signals_.refuse(block, ECONNRESET);
}

/// There is a backlog in the peer's mailbox, and it did not ask to be rung. It is rung nevertheless, at most once a
/// tick of the kernel (of many sends in one tick fewer and fewer ask the clock): it may have died, which its doorbell
/// tells, or somebody has garbled its wake state and it sleeps. False when it has died.
bool Outbox::remind(Peer& peer) {
    const uint64_t now = coarseMilliseconds();
    const bool sameTick = peer.checkedAt == now;
    peer.checkedAt = now;
    peer.checkInterval = sameTick ? std::min(2 * peer.checkInterval + 1, longestCheckInterval) : 0;
    peer.sendsUntilCheck = peer.checkInterval;
    return sameTick || doorbell::ring(peer.doorbell.get()) == 0 || !doorbell::isDead(peer.doorbell.get());
}

void Outbox::remindUnrung() {
    const Spid to = std::exchange(unrung_, Spid::none);
    const Peer* peer = to == Spid::none ? nullptr : peers_.find(to);
    if (peer == nullptr) return;
    if (stack::holdsBlocks(peer->slot.mailbox.loadRelaxed())) doorbell::ring(peer->doorbell.get());
}

}  // namespace linx
