#include "host/endpoint/hunts.h"

#include <cerrno>
#include <cstring>

#include "host/arena/central_lists.h"
#include "host/arena/hunt_table.h"
#include "host/recovery/retire.h"

namespace linx {

int Hunts::hunt(const Name& name, const BlockRef& signal) {
    for (;;) {
        const Spid found = findName(self_.arena(), name);
        if (found != Spid::none && (found == self_.spid || peers_.connect(found) != nullptr))
            return inbox_.append(signal, found);
        // A dead endpoint keeps its name until it is reaped; any other doorbell failure is returned to the caller.
        if (found != Spid::none && (errno != ECONNRESET || !peers_.reap(found)))
            return signals_.refuse(signal, errno);
        Errand errand;
        const Kept kept = prepare(name, errand) ? keep(name, signal, errand) : Kept::failed;
        if (kept == Kept::pending) {
            run(errand);
            return 0;
        }
        const int failure = errno;
        if (errand.signal) signals_.discard(errand.signal);
        errno = failure;
        if (kept == Kept::failed && !peers_.makeRoom()) return signals_.refuse(signal, failure);
    }
}

/// Finds the link for the name, if there is one, and makes what it is to be told. Before the hunt is pending: from
/// then on nothing may fail but for the link's end, after which the next link is told. Should this process die before
/// it has told the link, its hunts go with it. False with errno.
bool Hunts::prepare(const Name& name, Errand& errand) {
    const Spid link = findLink(self_.arena(), name);
    if (link == Spid::none) return true;
    if (link != self_.spid && peers_.connect(link) == nullptr) return errno == ECONNRESET && peers_.reap(link);
    errand.link = link;
    errand.signal = makeSought(restBehindLink(name));
    return static_cast<bool>(errand.signal);
}

/// Leaves the hunt pending unless something has changed in the meantime.
Hunts::Kept Hunts::keep(const Name& name, const BlockRef& signal, const Errand& errand) {
    const DomainLock lock(self_.domain);
    if (!lock.isHeld()) return Kept::failed;
    errno = ECONNABORTED;
    if (!self_.isStillOpen()) return Kept::failed;  // nobody would clear it up
    if (findName(self_.arena(), name) != Spid::none) return Kept::outdated;
    if (findLink(self_.arena(), name) != errand.link) return Kept::outdated;
    signals_.markQueued(signal, self_.spid);
    int failure = addHunt(self_.arena(), self_.spid, name, signal.ref);
    // Some entries may belong to dead endpoints not yet reaped.
    if (failure == ENOSPC && reapAllDeadIfDue(lock)) {
        failure = addHunt(self_.arena(), self_.spid, name, signal.ref);
    }
    if (failure == 0) return Kept::pending;
    errno = failure == EDQUOT ? ENOSPC : failure;
    return Kept::failed;
}

void Hunts::run(const Errand& errand) {
    if (!errand.signal) return;
    Peer* const link = peers_.find(errand.link);
    if (link != nullptr) {
        outbox_.sendToPeer(errand.signal, *link);
    } else {
        outbox_.sendToStranger(errand.signal, errand.link);
    }
}

/// No block with errno.
BlockRef Hunts::makeSought(const char* rest) {
    const size_t length = std::strlen(rest) + 1;
    LinxSignal* signal = signals_.allocate(static_cast<uint32_t>(sizeof(LinxSignal) + length), LINX_OS_SOUGHT_SIG);
    if (signal == nullptr) return {};
    std::memcpy(signal + 1, rest, length);
    return signals_.takeOver(&signal);
}

bool Hunts::tellSelf(const std::vector<Sought>& sought) {
    for (const Sought& one : sought) {
        const BlockRef signal = makeSought(one.rest());
        if (!signal || inbox_.append(signal, one.hunter) == -1) return false;
    }
    return true;
}

void Hunts::giveUp(const DomainLock& lock) {
    const Arena& arena = lock.arena();
    forEachHunt(arena, [&](Hunt& hunt) {
        if (hunt.hunter.loadRelaxed() != huntedBy(self_.spid)) return;
        clearHunt(hunt);
        const BlockRef block = arena.blockAt(hunt.signal.loadRelaxed());
        if (!block || block->owner.loadRelaxed() != queuedFor(self_.spid)) return;
        central::abandon(arena, block);
        central::push(arena, block);
    });
}

}  // namespace linx
