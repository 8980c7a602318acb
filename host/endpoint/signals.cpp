// Which signals are an endpoint's, and how they come into its user's hands and out of them.

#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/endpoint/fast_path.h"

namespace linx {

Block Endpoint::noBlock;

/// The signal that the user holds at this address; no block when none is there.
BlockRef Endpoint::find(const LinxSignal* signal) const {
    const BlockRef block = arena().blockOfSignal(signal);
    return block && block->owner.loadRelaxed() == spid_ ? block : BlockRef{};
}

LinxSignal* Endpoint::allocate(uint32_t size, uint32_t number) {
    if (!isSignalSize(size)) {
        errno = size > maxSignalBytes ? EMSGSIZE : EINVAL;
        return nullptr;
    }
    BlockRef block;
    do {
        block = pool_.allocate(linesForSignal(size));
    } while (!block && makeRoomForSignal());
    return !block ? nullptr : give(block, size, number);
}

/// After a failed allocation: whether it is worth trying again. Each time that it is, a peer or somebody dead has
/// gone. errno stays where it is not.
bool Endpoint::makeRoomForSignal() {
    return makeRoom() || (errno == ENOMEM && reapKnownDead());
}

int Endpoint::free(LinxSignal** signal) {
    const BlockRef block = find(*signal);
    if (!block) {
        errno = EINVAL;
        return -1;
    }
    *signal = nullptr;
    --held_;
    discard(block);
    return 0;
}

Spid Endpoint::sender(LinxSignal** signal) const {
    const BlockRef block = find(*signal);
    if (block) return block->sender.loadRelaxed() & spidMask;
    errno = EINVAL;
    return 0;
}

/// Takes a signal out of the user's hands, or makes one of `defaultNumber` when there is none.
bool Endpoint::takeOver(LinxSignal** signal, uint32_t defaultNumber, BlockRef& block) {
    LinxSignal* own = nullptr;
    if (signal == nullptr || *signal == nullptr) {
        own = allocate(sizeof(LinxSignal), defaultNumber);
        if (own == nullptr) return false;
        signal = &own;
    }
    block = find(*signal);
    if (!block) {
        errno = EINVAL;
        return false;
    }
    *signal = nullptr;
    --held_;
    return true;
}

int Endpoint::forgo(LinxSignal** signal) {
    const int reason = errno;
    if (signal == nullptr || find(*signal).block == nullptr) {
        errno = reason;
        return -1;
    }
    BlockRef block;
    takeOver(signal, 0, block);
    return refuse(block, reason);
}

/// Keeps a signal that was taken over; it will arrive from `sender`.
void Endpoint::park(const BlockRef& block, Spid sender) {
    block->sender.storeRelaxed(sender);
    block->owner.storeRelease(spid_ | ownerQueued);  // (E); a hunt's goes on with the domain lock (P)
}

/// Puts a signal that was taken over into the queue, as from `sender`, behind what others have sent before. 0, or -1
/// with errno ENOMEM, the signal freed.
int Endpoint::queueOwn(const BlockRef& block, Spid sender) {
    try {
        takeMailbox();
        queue_.reserve(1);
    } catch (const std::bad_alloc&) {
        updateReadiness();
        return refuse(block, ENOMEM);
    }
    park(block, sender);
    enqueue(block.ref);
    updateReadiness();
    return 0;
}

void Endpoint::discard(const BlockRef& block) {
    pool_.free(block);
}

void Endpoint::discard(Ref ref) {
    const BlockRef block = arena().blockAt(ref);
    if (block) discard(block);
}

}  // namespace linx
