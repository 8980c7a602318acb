#ifndef LINXIPC_HOST_ENDPOINT_PEERS_H
#define LINXIPC_HOST_ENDPOINT_PEERS_H

#include <memory>
#include <vector>

#include "host/arena/domain.h"

namespace linx {

/// An endpoint that this one talks to or supervises. Its bell is open for writing, and watched.
struct Peer {
    Spid spid;
    ScopedDescriptor bell;
    bool knowsUs = false;      ///< it has been told of this endpoint, and watches it
    uint64_t lookedAt = 0;     ///< coarse milliseconds: when its bell was last asked whether it lives
    std::vector<Ref> notices;  ///< to deliver when it ends
};

/// The peers of an endpoint, one a slot. Belongs to the endpoint's thread.
class Peers {
public:
    /// The epoll set in which bells are watched, tagged with the index of the peer's slot.
    Peers(const Domain& domain, int epoll) : domain_(domain), epoll_(epoll) {}
    ~Peers();

    /// The peer, if it is one already.
    Peer* find(Spid spid) const {
        Peer* peer = inSlot(indexOf(spid));
        return peer != nullptr && peer->spid == spid ? peer : nullptr;
    }

    /// The peer in this slot, whatever its incarnation.
    Peer* inSlot(uint32_t index) const { return index < peers_.size() ? peers_[index].get() : nullptr; }

    /// Makes `spid` a peer. REQUIRES an empty place at its index. Null with errno: ECONNRESET when its process is
    /// gone, otherwise what opening its bell says.
    Peer* meet(Spid spid);

    /// Keeps a notice for the peer's end.
    void supervise(Peer& peer, Ref notice);
    bool supervising() const { return supervisions_ != 0; }

    /// Forgets a peer.
    void part(uint32_t index);

    /// Takes any notice that has not been delivered; 0 when none is left.
    Ref takeAnyNotice();

    /// Closes the bells without touching the epoll set, which belongs to another process by now.
    void abandon();

private:
    int openBell(Spid spid);
    bool partWithAnyUnsupervised();

    const Domain& domain_;
    const int epoll_;
    std::vector<std::unique_ptr<Peer>> peers_;  ///< by slot index
    size_t supervisions_ = 0;
};

}  // namespace linx

#endif
