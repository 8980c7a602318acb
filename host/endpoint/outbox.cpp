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
    copyToTap(block, peer.spid);
    const Posted posted = post(block, peer, peer.spid, [&](Slot& target) {
        return introduction::push(target, peer.doorbell.get(), self_.spid, block, peer.introducedAt);
    });
    if (posted != Posted::refused) tap_.show();
    return finish(block, peer, posted);
}

void Outbox::copyToTap(const BlockRef& block, Spid to) {
    if (tap_.isWanted()) {
        tap_.copy(block, to);
    } else {
        tap_.letGo();
    }
}

int Outbox::sendToStranger(const BlockRef& block, Spid to) {
    if (!isOpen(self_.arena(), to)) {
        return signals_.refuse(block, everExisted(self_.arena(), to) ? ECONNRESET : ESRCH, to);
    }
    if (to == self_.spid) return sendToSelf(block);
    Peer* peer = peers_.connect(to);
    if (peer != nullptr) return sendToPeer(block, *peer);
    const int failure = errno;
    peers_.reapDeadIfDue();
    return signals_.refuse(block, failure, to);
}

int Outbox::sendToSelf(const BlockRef& block) {
    const uint32_t size = block->size.loadRelaxed();
    copyToTap(block, self_.spid);
    const int result = inbox_.append(block, self_.spid);
    if (result != 0) return result;
    self_.record.sent(block, size, self_.spid);
    tap_.show();
    return result;
}

/// The peer has been sent a signal and asks to be rung. Result of the send.
int Outbox::ring(const BlockRef& block, Peer& peer) {
    probes::ring(self_.spid, peer.spid);
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
    // The peer may have received the signal before it died: then it counts as sent. Otherwise it is still in the
    // mailbox and lost with the peer. The peer is dead, so its stores are final [death].
    const bool unread = block->owner.loadAcquire() == inFlightTo(peer.spid);
    if (unread) self_.record.unsent(block, peer.spid, ECONNRESET);  // while the block is still what was sent
    peers_.end(peer);
    peers_.reapDeadIfDue();
    if (!unread) return 0;
    errno = ECONNRESET;
    return -1;
}

/// A signal could not be pushed: the peer has ended or is being ended. In the latter case its end is not told yet, as
/// its name could still be found.
int Outbox::returnToSender(const BlockRef& block, const Peer& peer) {
    const Spid to = peer.spid;  // the peer may go
    if (!isOpen(self_.arena(), to)) peers_.end(peer);
    return signals_.refuse(block, ECONNRESET, to);
}

/// The peer's mailbox has a backlog, but it did not ask to be rung. Rings it anyway, at most once per kernel tick
/// (within a tick, sends read the clock less and less often): it may have died, which its doorbell tells, or be
/// asleep with a garbled wake state. False when it has died.
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
