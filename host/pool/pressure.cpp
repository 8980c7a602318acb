#include "host/pool/pressure.h"

#include "host/arena/share.h"
#include "host/arena/throttle.h"
#include "host/mailbox/doorbell.h"

namespace linx {
namespace pressure {
namespace {

/// Whether there is anybody to ask.
bool ringAll(const Domain& domain, Spid self) {
    bool any = false;
    domain.arena().forEachUsedSlot([&](SlotIndex, const Slot& slot) {
        const LifeWord life = slot.life.loadAcquire();
        const Spid spid = spidOf(life);
        // An endpoint that is leasing its first lines just now needs them.
        if (!isOpen(life) || spid == self || share::linesOf(slot) == 0) return;
        const ScopedDescriptor doorbell(doorbell::open(domain.directory(), spid));
        any = (doorbell.get() != -1 && doorbell::ring(doorbell.get()) == 0) || any;
    });
    return any;
}

}  // namespace

void raise(const Domain& domain, Spid self) {
    Header& header = domain.arena().header();
    header.pressure.addRelaxed(1);  // relaxed: whoever is rung reads it after the byte
    Throttle(header.reclaiming).runOnTop([&] {
        // Relaxed: waiting a little too long or too short does not change what others give up.
        if (ringAll(domain, self)) header.pressedAt.storeRelaxed(milliseconds());
    });
}

bool isRecent(const Arena& arena) {
    return milliseconds() - arena.header().pressedAt.loadRelaxed() < patience;
}

}  // namespace pressure
}  // namespace linx
