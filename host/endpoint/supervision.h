#ifndef LINXIPC_HOST_ENDPOINT_SUPERVISION_H
#define LINXIPC_HOST_ENDPOINT_SUPERVISION_H

#include "host/endpoint/inbox.h"

namespace linx {

/// Being told of the ends of others.
class Supervision {
public:
    Supervision(const Identity& self, Signals& signals, Peers& peers, Inbox& inbox)
        : self_(self), signals_(signals), peers_(peers), inbox_(inbox) {}

    /// Keeps a notice, a signal that was taken over, until `spid` ends; it then arrives after all that `spid` had
    /// sent. False with errno, the notice freed: ESRCH when there never was such an endpoint.
    bool attach(const BlockRef& notice, Spid spid);

private:
    enum class Target {
        self,
        alive,
        ended,
        unreachable  ///< with errno
    };
    Target look(Spid spid, Peer*& peer);
    bool keep(Peer& peer, const BlockRef& notice);

    const Identity self_;
    Signals& signals_;
    Peers& peers_;
    Inbox& inbox_;
};

}  // namespace linx

#endif
