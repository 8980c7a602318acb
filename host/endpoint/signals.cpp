#include "host/endpoint/signals.h"

#include <cerrno>

namespace linx {

Block Signals::noBlock;

BlockRef Signals::heldAt(const LinxSignal* signal) const {
    const BlockRef block = self_.arena().blockOfSignal(signal);
    return block && block->owner.loadRelaxed() == heldBy(self_.spid) ? block : BlockRef{};
}

LinxSignal* Signals::allocate(uint32_t size, uint32_t number) {
    if (!isSignalSize(size)) {
        errno = size > maxSignalBytes ? EMSGSIZE : EINVAL;
        return nullptr;
    }
    const BlockRef block = pool_.allocate(linesForSignal(size));
    return block ? give(block, size, number) : nullptr;
}

BlockRef Signals::takeOver(LinxSignal** signal) {
    const BlockRef block = heldAt(*signal);
    if (block) {
        letGo(signal);
    } else {
        errno = EINVAL;
    }
    return block;
}

void Signals::markQueued(const BlockRef& block, Spid sender) {
    block->sender.storeRelaxed(sender);
    block->owner.storeRelease(queuedFor(self_.spid));  // [owner]; a hunt's goes on with the domain lock
}

int Signals::refuse(const BlockRef& block, int reason, Spid to) {
    self_.record.refused(block, to, reason);
    block->owner.storeRelaxed(heldBy(self_.spid));
    discard(block);
    errno = reason;
    return -1;
}

void Signals::discard(Ref ref) {
    const BlockRef block = self_.arena().blockAt(ref);
    if (block) discard(block);
}

}  // namespace linx
