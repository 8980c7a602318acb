#include "host/pool/pressure.h"

#include "host/arena/share.h"
#include "host/mailbox/bell.h"

namespace linx {
namespace pressure {

bool raise(const Domain& domain, Spid self) {
    const Arena& arena = domain.arena();
    arena.header().pressure.addRelaxed(1);  // relaxed: whoever is rung reads it after the byte
    bool any = false;
    const uint32_t used = arena.usedSlots();
    for (uint32_t i = 1; i <= used; ++i) {
        const Slot& slot = arena.slot(i);
        const uint32_t life = slot.life.loadAcquire();
        const Spid spid = life & spidMask;
        // Who leases his first lines just now needs them.
        if ((life & lifeOpen) == 0 || spid == self || share::linesOf(slot) == 0) continue;
        const ScopedDescriptor bell(bell::open(domain.directory(), spid));
        any = (bell.get() != -1 && bell::ring(bell.get()) == 0) || any;
    }
    return any;
}

}  // namespace pressure
}  // namespace linx
