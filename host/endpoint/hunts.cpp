#include "host/endpoint/hunts.h"

#include <cerrno>

#include "host/arena/central_lists.h"
#include "host/arena/hunt_table.h"
#include "host/recovery/retire.h"

namespace linx {

int Hunts::hunt(const Name& name, const BlockRef& signal) {
    for (;;) {
        const Spid found = findName(self_.arena(), name);
        if (found != Spid::none && (found == self_.spid || peers_.connect(found) != nullptr))
            return inbox_.append(signal, found);
        // One that has died still has its name until it is reaped; any other trouble with its doorbell is the
        // caller's.
        if (found != Spid::none && (errno != ECONNRESET || !peers_.reap(found)))
            return signals_.refuse(signal, errno);
        bool opened = false;
        int failure;
        do {
            failure = keep(name, signal, opened);
            if (failure != 0) errno = failure;
        } while (failure != 0 && peers_.makeRoom());
        if (failure != 0) return signals_.refuse(signal, failure);
        if (!opened) return 0;
    }
}

/// Leaves the hunt pending unless the name has been opened in the meantime. Returns 0 or an errno value.
int Hunts::keep(const Name& name, const BlockRef& signal, bool& opened) {
    const DomainLock lock(self_.domain);
    if (!lock.isHeld()) return errno;
    if (!self_.isStillOpen()) return ECONNABORTED;  // nobody would clear it up
    opened = findName(self_.arena(), name) != Spid::none;
    if (opened) return 0;
    signals_.park(signal, self_.spid);
    const int failure = addHunt(self_.arena(), self_.spid, name, signal.ref);
    if (failure == EDQUOT) return ENOSPC;
    // There may be hunts of the dead, whom nobody has missed yet.
    const bool mayHaveRoom = failure == ENOSPC && reapAllDeadIfDue(lock);
    return mayHaveRoom ? addHunt(self_.arena(), self_.spid, name, signal.ref) : failure;
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
