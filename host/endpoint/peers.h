#ifndef LINXIPC_HOST_ENDPOINT_PEERS_H
#define LINXIPC_HOST_ENDPOINT_PEERS_H

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "host/endpoint/identity.h"
#include "host/endpoint/signal_queue.h"
#include "host/mailbox/introduction.h"
#include "host/recovery/domain_lock.h"

namespace linx {

/// An endpoint that this one talks to or supervises. Its doorbell is open for writing, and watched.
struct Peer {
    /// Takes over the doorbell.
    Peer(Spid itsSpid, Slot& itsSlot, ScopedDescriptor& itsDoorbell)
        : spid(itsSpid), slot(itsSlot), doorbell(itsDoorbell.release()) {}

    const Spid spid;
    Slot& slot;
    ScopedDescriptor doorbell;
    uint32_t introducedAt = introduction::notYet;  ///< the count of its partings when it was told of this endpoint
    uint64_t checkedAt = 0;        ///< coarse milliseconds: when its doorbell was last asked whether it lives
    uint32_t checkInterval = 0;    ///< sends that pass between two that ask the clock whether it is time for that
    uint32_t sendsUntilCheck = 0;  ///< how many of these are still to pass
    uint64_t usedAt = 0;           ///< counts uses of all peers: which one was used longest ago
    std::vector<Ref> notices;      ///< to deliver when it ends
    std::unique_ptr<Peer> nextEnded;
};

/// The peers of an endpoint, at most one per slot: which it is connected to, whether they live, and what to do once
/// they have ended. Ended ones are removed at once, so that the slot's next user can be connected; their notices wait
/// for delivery, and dead ones wait to be reaped.
///
/// Belongs to the endpoint's thread.
class Peers {
public:
    /// Doorbells are watched in the set `epoll`, tagged with the index of the peer's slot.
    Peers(const Identity& self, int epoll) : self_(self), epoll_(epoll) {}
    ~Peers();
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    /// The peer, if it is one already.
    Peer* find(Spid spid) { return spid == latestSpid_ ? latest_ : lookUp(spid); }

    /// The peer that was found last, and that one if it is `spid`; null when there is none.
    Peer* latest() const { return latest_; }
    Peer* latest(Spid spid) const { return spid == latestSpid_ ? latest_ : nullptr; }

    /// Connects to the open endpoint. Null with errno: ECONNRESET when its process has died, and it has yet to be
    /// reaped; otherwise why its doorbell cannot be opened. If descriptors run out, another peer is dropped.
    Peer* connect(Spid spid);

    /// Handles records from this endpoint's doorbell: watches the senders that introduce themselves, and looks for
    /// ended peers if a record says that some ended without the kernel telling.
    void hear(const uint32_t* records, uint32_t count);

    /// Records may have been dropped.
    void missRecords();

    /// The kernel reported an event for the peer in this slot, if any. Checks it again: the slot may have a new user
    /// by now, which is alive.
    void check(SlotIndex index);

    /// The peer has ended.
    void end(const Peer& peer) { end(indexOf(peer.spid)); }

    /// Keeps a notice for the peer's end.
    void supervise(Peer& peer, const BlockRef& notice);

    /// Whether any notice is still to be delivered.
    bool supervising() const { return supervisions_ != 0; }

    /// Whether some can be delivered now.
    bool hasEnded() const { return firstEnded_ != nullptr; }

    /// Whether a peer was disconnected that may have sent signals without ringing: nothing announces those any more,
    /// so somebody has to look at the mailbox.
    bool mayHaveLeftMail() const { return mayHaveLeftMail_; }
    void leftMailTaken() { mayHaveLeftMail_ = false; }

    /// Delivers the ended peers' notices. REQUIRES that all these had sent is in the queue. Out of memory, those of
    /// each peer are all delivered or all kept.
    void deliverNotices(SignalQueue& queue);

    /// Takes all notices, of whomever, and calls `visit(notice)` for each.
    template <class Visit>
    void takeNotices(Visit visit) {
        for (const auto& peer : peers_) {
            if (peer != nullptr) takeNotices(*peer, visit);
        }
        for (; hasEnded(); firstEnded_ = std::move(firstEnded_->nextEnded)) takeNotices(*firstEnded_, visit);
    }

    /// After a failure: if it was for lack of descriptors, frees one by disconnecting the least recently used peer
    /// that is not supervised (it can be reconnected). Whether to try again; if not, errno is unchanged.
    bool makeRoom();

    /// Those found dead that this endpoint has not reaped yet.
    const std::vector<Spid>& dead() const { return dead_; }

    /// Whether there are some that it has not tried to reap yet.
    bool owesReaping() const { return owesReaping_; }

    /// Reaps them, together. False with errno when the lock could not be had: then later.
    bool reapDead(DomainLock::Patience patience);

    /// The same after an operation that found one dead, but rate-limited, since each reaping scans the whole arena:
    /// those found soon after one wait for the next, or for the chores.
    void reapDeadIfDue();

    /// Reaps one that was found dead, waiting for the lock, and perhaps others. False with errno when the lock could
    /// not be had. Needs no memory.
    bool reap(Spid dead);

    /// Reaps the peers that the kernel reports dead, without delivering notices: for an allocation that may need
    /// their memory. Whether there were any. errno stays.
    bool reapKnownDead();

    /// Closes the doorbells without touching the epoll set, which belongs to another process by now.
    void abandon();

private:
    template <class Visit>
    void takeNotices(Peer& peer, Visit visit) {
        std::for_each(peer.notices.begin(), peer.notices.end(), visit);
        supervisions_ -= peer.notices.size();
        peer.notices.clear();
    }
    Peer* inSlot(SlotIndex index) const {
        return numberOf(index) < peers_.size() ? peers_[numberOf(index)].get() : nullptr;
    }
    Peer* lookUp(Spid spid);
    Peer* open(Spid spid);
    void end(SlotIndex index);
    void findEnded();
    void watchSender(Spid sender);
    void rememberDead(Spid dead);
    std::unique_ptr<Peer> disconnect(SlotIndex index);
    void forgetLatest();
    int openDoorbell(Spid spid);
    void leaveReserve(ScopedDescriptor& doorbell);
    bool disconnectOldest();

    const Identity self_;
    const int epoll_;
    std::vector<std::unique_ptr<Peer>> peers_;  ///< by slot index
    std::unique_ptr<Peer> firstEnded_;          ///< those with notices
    Peer* lastEnded_ = nullptr;
    std::vector<Spid> dead_;
    bool owesReaping_ = false;
    uint64_t reapAgainAt_ = 0;  ///< nanoseconds of the monotonic clock: not before then by a send
    size_t supervisions_ = 0;
    bool mayHaveLeftMail_ = false;
    Spid latestSpid_ = Spid::none;  ///< most signals go where the one before went
    Peer* latest_ = nullptr;
    uint64_t uses_ = 0;
};

}  // namespace linx

#endif
