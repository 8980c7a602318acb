#ifndef LINXIPC_HOST_ENDPOINT_OUTBOX_H
#define LINXIPC_HOST_ENDPOINT_OUTBOX_H

#include "host/endpoint/chores.h"
#include "host/endpoint/inbox.h"
#include "host/mailbox/introduction.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/record/probes.h"
#include "host/record/tap_writer.h"

namespace linx {

/// Sending: a signal that was taken over goes into another endpoint's mailbox, and that one is rung if it asks.
class Outbox {
public:
    Outbox(const Identity& self, Signals& signals, Peers& peers, Inbox& inbox, Chores& chores)
        : self_(self),
          signals_(signals),
          peers_(peers),
          inbox_(inbox),
          chores_(chores),
          tap_(self.domain, self.spid) {}

    /// What has become of a signal on its way to a peer.
    enum class Posted {
        done,
        refused,       ///< not sent: the peer has ended or wants an introduction, or no fast path applies
        wantsRing,     ///< the peer asks to be rung for it
        wantsReminder  ///< the peer is to be rung though it does not ask
    };

    /// Whether a send has to do more than to post the signal.
    bool isTapped() const { return tap_.isWanted(); }

    /// Posts a signal to a peer that knows this endpoint, as most do; `to` is its spid, which the caller has at hand.
    /// `refused` leaves everything as it was.
    Posted postAtOnce(const BlockRef& block, Peer& peer, Spid to);

    /// Does what is left to do of a send. Returns its result: 0, or -1 with errno, the signal freed.
    int finish(const BlockRef& block, Peer& peer, Posted posted);

    /// Sends to a peer, introducing this endpoint if it has to. Result as above.
    int sendToPeer(const BlockRef& block, Peer& peer);

    /// Sends to an endpoint that is not a peer yet, or to itself. Result as above; ESRCH when there never was such an
    /// endpoint.
    int sendToStranger(const BlockRef& block, Spid to);

    /// If the last signal was sent without a ring, rings the peer now unless its mailbox is empty: its wake state may
    /// have been garbled, and nothing would wake it while this endpoint waits for its answer.
    void remindUnrung();

private:
    template <class Push>
    Posted post(const BlockRef& block, Peer& peer, Spid to, Push push);
    int sendToSelf(const BlockRef& block);
    void copyToTap(const BlockRef& block, Spid to);
    int ring(const BlockRef& block, Peer& peer);
    bool remind(Peer& peer);
    int fail(const BlockRef& block, const Peer& peer);
    int returnToSender(const BlockRef& block, const Peer& peer);

    const Identity self_;
    Signals& signals_;
    Peers& peers_;
    Inbox& inbox_;
    Chores& chores_;
    TapWriter tap_;
    Spid unrung_ = Spid::none;  ///< the last receiver, if it did not ask to be rung
};

/// Pushes the signal onto the peer's mailbox by `push`. Forced inline: a call would cost each message 35
/// instructions, for what it would have to build in memory.
template <class Push>
[[gnu::always_inline]] inline Outbox::Posted Outbox::post(const BlockRef& block, Peer& peer, Spid to, Push push) {
    Slot& target = peer.slot;
    // Its mailbox may be another endpoint's by now, which would have to throw the signal away. Acquire: as in isOpen.
    if (target.life.loadAcquire() != openAs(to)) return Posted::refused;
    self_.slot.sending.storeRelease(block.ref);  // [sending], after the push before this one
    block->sender.storeRelaxed(self_.spid);
    // Release [owner]: the target's reaper looks at blocks that are about to be pushed, and must not find the new
    // owner beside an old sender.
    block->owner.storeRelease(inFlightTo(to));
    // Before the push, after which the signal is another's.
    const uint32_t size = block->size.loadRelaxed();
    probes::send(self_.spid, to, block->signal.number, size);
    self_.record.sent(block, size, to);
    const Ref before = push(target);
    if (stack::isRefused(before)) {
        block->owner.storeRelaxed(heldBy(self_.spid));
        self_.record.notSent(block->size.loadRelaxed());
        return Posted::refused;
    }
    const WakeWord found = target.wakeState.loadSeqCst();  // [wake-up], see wake_state.h
    if (wake_state::wantsRing(found, to)) return Posted::wantsRing;
    unrung_ = to;
    return before == stack::empty || peer.sendsUntilCheck-- != 0 ? Posted::done : Posted::wantsReminder;
}

[[gnu::always_inline]] inline Outbox::Posted Outbox::postAtOnce(const BlockRef& block, Peer& peer, Spid to) {
    const uint32_t introducedAt = peer.introducedAt;
    if (introducedAt != peer.slot.partings.loadRelaxed()) return Posted::refused;  // relaxed: the push by tag decides
    return post(block, peer, to,
                [&](Slot& target) { return stack::push(target.mailbox, block, introduction::tagAt(introducedAt)); });
}

inline int Outbox::finish(const BlockRef& block, Peer& peer, Posted posted) {
    switch (posted) {
        case Posted::done:
            return 0;
        case Posted::refused:
            return returnToSender(block, peer);
        case Posted::wantsRing:
            return ring(block, peer);
        case Posted::wantsReminder:
            return remind(peer) ? 0 : fail(block, peer);
    }
    return 0;
}

}  // namespace linx

#endif
