#ifndef LINXIPC_HOST_ENDPOINT_PEERS_H
#define LINXIPC_HOST_ENDPOINT_PEERS_H

#include <memory>
#include <vector>

#include "host/arena/domain.h"
#include "host/mailbox/introduction.h"

namespace linx {

/// An endpoint that this one talks to or supervises. Its doorbell is open for writing, and watched.
struct Peer {
    /// Takes over the doorbell.
    Peer(Spid itsSpid, Slot& itsSlot, ScopedDescriptor& itsDoorbell)
        : spid(itsSpid), slot(itsSlot), doorbell(itsDoorbell.release()) {}

    const Spid spid;
    Slot& slot;
    ScopedDescriptor doorbell;
    uint32_t introducedAt = introduction::never;  ///< the count of its partings when it was told of this endpoint
    uint64_t checkedAt = 0;        ///< coarse milliseconds: when its doorbell was last asked whether it lives
    uint32_t checkInterval = 0;    ///< sends that pass between two that ask the clock whether it is time for that
    uint32_t sendsUntilCheck = 0;  ///< how many of these are still to pass
    uint64_t usedAt = 0;           ///< counts uses of all peers: which one was used longest ago
    std::vector<Ref> notices;      ///< to deliver when it ends
};

/// The peers of an endpoint, one a slot. Belongs to the endpoint's thread.
class Peers {
public:
    /// `own` is the slot of the endpoint whose peers they are, `epoll` the set in which doorbells are watched, tagged
    /// with the index of the peer's slot.
    Peers(const Domain& domain, Slot& own, int epoll) : domain_(domain), own_(own), epoll_(epoll) {}
    ~Peers();

    /// The peer, if it is one already.
    Peer* find(Spid spid) { return spid == latestSpid_ ? latest_ : lookUp(spid); }

    /// The peer that was found last, and that one if it is `spid`; null when there is none.
    Peer* latest() const { return latest_; }
    Peer* latest(Spid spid) const { return spid == latestSpid_ ? latest_ : nullptr; }

    /// The peer in this slot, whatever its incarnation.
    Peer* inSlot(uint32_t index) const { return index < peers_.size() ? peers_[index].get() : nullptr; }

    /// Slot indices are below.
    uint32_t size() const { return static_cast<uint32_t>(peers_.size()); }

    /// Makes `spid` a peer. REQUIRES an empty place at its index. Null with errno: ECONNRESET when its process is
    /// gone, otherwise what opening its doorbell says. Another peer may have to go for it, see below.
    Peer* connect(Spid spid);

    /// Keeps a notice for the peer's end.
    void supervise(Peer& peer, Ref notice);
    bool supervising() const { return supervisions_ != 0; }

    /// Forgets a peer.
    void disconnect(uint32_t index);

    /// After a failure: whether it is worth trying again, since it was for want of descriptors and there is one now.
    /// It comes from the peer that was used longest ago and is not supervised: it can be met again. errno stays where
    /// it is not.
    bool makeRoom();

    /// Takes the notices that wait for the end of the peer in this slot.
    std::vector<Ref> takeNotices(uint32_t index);

    /// Closes the doorbells without touching the epoll set, which belongs to another process by now.
    void abandon();

    /// The peer that was sent a signal last, if it did not ask to be rung for it.
    void noteUnrung(Peer* peer) { unrung_ = peer; }
    Peer* unrung() const { return unrung_; }

    /// Calls `visit(peer)` for each.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const auto& peer : peers_) {
            if (peer != nullptr) visit(*peer);
        }
    }

private:
    Peer* lookUp(Spid spid);
    void forgetLatest();
    int openDoorbell(Spid spid);
    void leaveReserve(ScopedDescriptor& doorbell);
    bool disconnectOldest();

    const Domain& domain_;
    Slot& own_;
    const int epoll_;
    std::vector<std::unique_ptr<Peer>> peers_;  ///< by slot index
    size_t supervisions_ = 0;
    Spid latestSpid_ = 0;  ///< most signals go where the one before went
    Peer* latest_ = nullptr;
    Peer* unrung_ = nullptr;
    uint64_t uses_ = 0;
};

}  // namespace linx

#endif
