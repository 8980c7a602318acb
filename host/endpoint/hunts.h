#ifndef LINXIPC_HOST_ENDPOINT_HUNTS_H
#define LINXIPC_HOST_ENDPOINT_HUNTS_H

#include "host/arena/name_table.h"
#include "host/endpoint/inbox.h"

namespace linx {

/// The hunts of an endpoint for others. Those that are answered later are kept in the arena until then.
class Hunts {
public:
    Hunts(const Identity& self, Signals& signals, Peers& peers, Inbox& inbox)
        : self_(self), signals_(signals), peers_(peers), inbox_(inbox) {}

    /// Hunts for the name with a signal that was taken over: it comes back from the endpoint that has the name, now
    /// or once there is one. Returns 0, or -1 with errno, the signal freed.
    int hunt(const Name& name, const BlockRef& signal);

    /// Gives up those that are pending, at the end of the endpoint.
    void giveUp(const DomainLock& lock);

private:
    int keep(const Name& name, const BlockRef& signal, bool& opened);

    const Identity self_;
    Signals& signals_;
    Peers& peers_;
    Inbox& inbox_;
};

}  // namespace linx

#endif
