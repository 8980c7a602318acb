#include "host/endpoint/supervision.h"

#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/record/kept.h"

namespace linx {

bool Supervision::attach(const BlockRef& notice, Spid spid) {
    Peer* peer = nullptr;
    switch (look(spid, peer)) {
        case Target::self:
            tellKept(*notice, self_.spid, onItsSendersEnd);
            signals_.markQueued(notice, spid);
            signals_.keep();  // nobody learns of one's own end
            return true;
        case Target::alive:
            return keep(*peer, notice);
        case Target::ended:
            return inbox_.append(notice, spid) == 0;
        case Target::unreachable:
            break;
    }
    signals_.refuse(notice, errno);
    return false;
}

Supervision::Target Supervision::look(Spid spid, Peer*& peer) {
    if (spid == self_.spid) return Target::self;
    if (!everExisted(self_.arena(), spid)) {
        errno = ESRCH;
        return Target::unreachable;
    }
    if (!isOpen(self_.arena(), spid)) return Target::ended;
    peer = peers_.connect(spid);
    if (peer != nullptr) return Target::alive;
    if (errno != ECONNRESET) return Target::unreachable;
    peers_.reapDeadIfDue();
    return Target::ended;
}

/// False with errno ENOMEM, the notice freed.
bool Supervision::keep(Peer& peer, const BlockRef& notice) {
    try {
        peers_.supervise(peer, notice);
    } catch (const std::bad_alloc&) {
        signals_.refuse(notice, ENOMEM);
        return false;
    }
    signals_.markQueued(notice, peer.spid);
    return true;
}

}  // namespace linx
