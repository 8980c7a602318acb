#include "host/mailbox/broadcast.h"

#include <cerrno>

#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"

namespace linx {
namespace {

bool hasEnded(int failure) {
    return failure == ENXIO || failure == ENOENT;
}

/// 0 or an errno value; EPIPE when the endpoint has ended.
int ringByName(const Domain& domain, Spid spid) {
    const ScopedDescriptor doorbell(doorbell::open(domain.directory(), spid));
    if (doorbell.get() != -1) return doorbell::ring(doorbell.get());
    return hasEnded(errno) ? EPIPE : errno;
}

/// Retries a few times: an endpoint not told now is not told later, and a shortage may be over by then.
void tellOfEnds(const Domain& domain, Spid spid) {
    constexpr int attempts = 3;
    for (int left = attempts; left != 0; --left) {
        const ScopedDescriptor doorbell(doorbell::open(domain.directory(), spid));
        if (doorbell.get() != -1 ? doorbell::tell(doorbell.get(), doorbell::ended) : hasEnded(errno)) return;
    }
}

}  // namespace

bool ringSleepers(const Domain& domain, SlotIndex ringer) {
    bool all = true;
    domain.arena().forEachUsedSlot([&](SlotIndex, Slot& slot) {
        const Spid to = spidOf(slot.life.loadAcquire());
        // This load and the next stand in for the pusher's load after its push [wake-up]. An endpoint that has ended
        // has no mail.
        if (!stack::holdsBlocks(slot.mailbox.loadSeqCst())) return;
        const int result = wake_state::ringIfAsked(slot, to, ringer, [&] { return ringByName(domain, to); });
        all = all && (result == 0 || result == EPIPE);
    });
    return all;
}

void tellOfEnds(const Domain& domain) {
    domain.arena().forEachUsedSlot([&](SlotIndex, const Slot& slot) {
        const LifeWord life = slot.life.loadAcquire();
        if (isOpen(life)) tellOfEnds(domain, spidOf(life));
    });
}

}  // namespace linx
