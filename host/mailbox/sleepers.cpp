#include "host/mailbox/sleepers.h"

#include <cerrno>

#include "host/mailbox/announced_stack.h"
#include "host/mailbox/attention.h"
#include "host/mailbox/bell.h"

namespace linx {
namespace {

/// 0 or an errno value; EPIPE when the endpoint has ended.
int ringByName(const Domain& domain, Spid spid) {
    const ScopedDescriptor bell(bell::open(domain.directory(), spid));
    if (bell.get() != -1) return bell::ring(bell.get());
    return errno == ENXIO || errno == ENOENT ? EPIPE : errno;
}

}  // namespace

bool ringSleepers(const Domain& domain, uint32_t ringer) {
    const Arena& arena = domain.arena();
    const uint32_t used = arena.usedSlots();
    bool all = true;
    for (uint32_t i = 1; i <= used; ++i) {
        Slot& slot = arena.slot(i);
        const uint32_t life = slot.life.loadAcquire();
        const Spid to = life & spidMask;
        // These looks stand in for those of whoever pushed: (B) after (A).
        if ((life & lifeOpen) == 0 || !stack::holdsBlocks(slot.mailbox.loadSeqCst())) continue;
        const int result = attention::ring(slot.attention, slot.attention.loadSeqCst(), to, ringer,
                                           [&] { return ringByName(domain, to); });
        all = all && (result == 0 || result == EPIPE);
    }
    return all;
}

void tellOfEnds(const Domain& domain) {
    const Arena& arena = domain.arena();
    const uint32_t used = arena.usedSlots();
    for (uint32_t i = 1; i <= used; ++i) {
        const uint32_t life = arena.slot(i).life.loadAcquire();
        if ((life & lifeOpen) == 0) continue;
        const ScopedDescriptor bell(bell::open(domain.directory(), life & spidMask));
        if (bell.get() != -1) bell::tell(bell.get(), bell::ended);
    }
}

}  // namespace linx
