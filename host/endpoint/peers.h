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

/// The peers of an endpoint, one a slot: whom it is connected to, whether they live, and what is to be done when they
/// have ended. Those that have go out of their slots at once, for the next user of the slot to be connected; their
/// notices wait for whoever delivers them, the dead among them for somebody to reap them.
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

    /// The open endpoint as a peer. Null with errno: ECONNRESET when its process has died, which somebody then has to
    /// reap, otherwise what opening its doorbell says. Where descriptors run out, another peer goes for it.
    Peer* connect(Spid spid);

    /// What others have written into this endpoint's doorbell: senders that introduce themselves are watched from now
    /// on, and ended peers are looked for if some have ended of which the kernel does not tell.
    void hear(const uint32_t* records, uint32_t count);

    /// Records may have been dropped.
    void missRecords();

    /// The kernel has told of the peer in this slot, if there is one. It is asked again: the slot may be another
    /// endpoint's by now, which lives.
    void check(SlotIndex index);

    /// The peer has ended.
    void end(const Peer& peer) { end(indexOf(peer.spid)); }

    /// Keeps a notice for the peer's end.
    void supervise(Peer& peer, Ref notice);

    /// Whether any notice is still to be delivered.
    bool supervising() const { return supervisions_ != 0; }

    /// Whether some can be delivered now.
    bool hasEnded() const { return firstEnded_ != nullptr; }

    /// Whether this endpoint has parted with a peer that may have sent something before, and have rung for none of
    /// it: nothing tells of that any more, until somebody has looked at the mailbox.
    bool mayHaveLeftMail() const { return mayHaveLeftMail_; }
    void leftMailTaken() { mayHaveLeftMail_ = false; }

    /// Delivers them. REQUIRES that what the ended ones had sent is in the queue already. Out of memory, those of
    /// each peer have been delivered, or are kept.
    void deliverNotices(SignalQueue& queue);

    /// Takes all notices, of whomever, and calls `visit(notice)` for each.
    template <class Visit>
    void takeNotices(Visit visit) {
        for (const auto& peer : peers_) {
            if (peer != nullptr) takeNotices(*peer, visit);
        }
        for (; hasEnded(); firstEnded_ = std::move(firstEnded_->nextEnded)) takeNotices(*firstEnded_, visit);
    }

    /// After a failure: whether it is worth trying again, since it was for want of descriptors and there is one now.
    /// It comes from the peer that was used longest ago and is not supervised: it can be connected again. errno stays
    /// where it is not.
    bool makeRoom();

    /// Those found dead that this endpoint has not reaped yet.
    const std::vector<Spid>& dead() const { return dead_; }

    /// Whether there are some among them whom it has not tried to reap either.
    bool owesReaping() const { return owesReaping_; }

    /// Reaps them, together. False with errno when the lock could not be had: then later.
    bool reapDead(DomainLock::Patience patience);

    /// The same after an operation that has found one dead. Where many do so one after the other, those found soon
    /// after a time of reaping wait for the next, or for the chores: all of the arena is looked through each time.
    void reapDeadIfDue();

    /// Reaps one that was found dead, waiting for the lock, and perhaps others. False with errno when the lock could
    /// not be had. Needs no memory.
    bool reap(Spid dead);

    /// Reaps those of whose death the kernel can tell, without delivering anything: for an allocation, whose memory
    /// they may have. Whether there were any. errno stays.
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
