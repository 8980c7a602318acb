#ifndef LINXIPC_HOST_ENDPOINT_HUNTS_H
#define LINXIPC_HOST_ENDPOINT_HUNTS_H

#include <vector>

#include "host/endpoint/outbox.h"
#include "host/endpoint/sought.h"

namespace linx {

/// The hunts of an endpoint for others. Those that are answered later are kept in the arena until then, and if there
/// is a link for the name, it is told.
class Hunts {
public:
    Hunts(const Identity& self, Signals& signals, Peers& peers, Inbox& inbox, Outbox& outbox)
        : self_(self), signals_(signals), peers_(peers), inbox_(inbox), outbox_(outbox) {}

    /// Hunts for the name with a signal that was taken over: it comes back from the endpoint that has the name, now
    /// or once there is one. Returns 0, or -1 with errno, the signal freed.
    int hunt(const Name& name, const BlockRef& signal);

    /// Tells this endpoint, a link, what others hunt for. False with errno when there is no memory for that.
    bool tellSelf(const std::vector<Sought>& sought);

    /// Gives up those that are pending, at the end of the endpoint.
    void giveUp(const DomainLock& lock);

private:
    enum class Kept {
        pending,
        outdated,  ///< the name has been opened, or a link has come or gone: look again
        failed     ///< with errno
    };
    /// A link that is to be told of a hunt, and the signal for it.
    struct Errand {
        Spid link = Spid::none;
        BlockRef signal;
    };
    bool prepare(const Name& name, Errand& errand);
    Kept keep(const Name& name, const BlockRef& signal, const Errand& errand);
    void run(const Errand& errand);
    BlockRef makeSought(const char* rest);

    const Identity self_;
    Signals& signals_;
    Peers& peers_;
    Inbox& inbox_;
    Outbox& outbox_;
};

}  // namespace linx

#endif
