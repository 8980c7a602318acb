// Which signals are an endpoint's, and how they come into its user's hands and out of them.

#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/endpoint/at_once.h"

namespace linx {

Block Endpoint::noBlock;

/// The signal that the user holds at this address; no block when none is there.
Endpoint::Held Endpoint::find(const LinxSignal* signal) const {
    Held held = {nullptr, 0, 0};
    held.block = arena().blockOfSignal(signal, held.ref, held.sizeClass);
    if (held.block != nullptr && held.block->owner.loadRelaxed() != spid_) held.block = nullptr;
    return held;
}

Endpoint::Held Endpoint::at(Ref ref) const {
    Held held = {nullptr, ref, 0};
    held.block = arena().blockAt(ref, held.sizeClass);
    return held;
}

LinxSignal* Endpoint::allocate(uint32_t size, uint32_t number) {
    if (!isSignalSize(size)) {
        errno = size > maxSignalBytes ? EMSGSIZE : EINVAL;
        return nullptr;
    }
    Held held;
    do {
        held.block = pool_.allocate(linesForSignal(size), held.ref, held.sizeClass);
    } while (held.block == nullptr && makeRoomForSignal());
    return held.block == nullptr ? nullptr : give(held, size, number);
}

/// After a failed allocation: whether it is worth trying again. Each time that it is, a peer or somebody dead has
/// gone. errno stays where it is not.
bool Endpoint::makeRoomForSignal() {
    return makeRoom() || (errno == ENOMEM && reapKnownDead());
}

int Endpoint::free(LinxSignal** signal) {
    const Held held = find(*signal);
    if (held.block == nullptr) {
        errno = EINVAL;
        return -1;
    }
    *signal = nullptr;
    --held_;
    discard(held);
    return 0;
}

Spid Endpoint::sender(LinxSignal** signal) const {
    const Held held = find(*signal);
    if (held.block != nullptr) return held.block->sender.loadRelaxed() & spidMask;
    errno = EINVAL;
    return 0;
}

/// Takes a signal out of the user's hands, or makes one of `defaultNumber` when there is none.
bool Endpoint::takeOver(LinxSignal** signal, uint32_t defaultNumber, Held& held) {
    LinxSignal* own = nullptr;
    if (signal == nullptr || *signal == nullptr) {
        own = allocate(sizeof(LinxSignal), defaultNumber);
        if (own == nullptr) return false;
        signal = &own;
    }
    held = find(*signal);
    if (held.block == nullptr) {
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
    Held held;
    takeOver(signal, 0, held);
    return refuse(held, reason);
}

/// Keeps a signal that was taken over; it will arrive from `sender`.
void Endpoint::park(const Held& held, Spid sender) {
    held.block->sender.storeRelaxed(sender);
    held.block->owner.storeRelease(spid_ | ownerQueued);  // (E); a hunt's goes on with the domain lock (P)
}

/// Puts a signal that was taken over into the queue, as from `sender`, behind what others have sent before. 0, or -1
/// with errno ENOMEM, the signal freed.
int Endpoint::queueOwn(const Held& held, Spid sender) {
    try {
        takeMailbox();
        queue_.reserve(1);
    } catch (const std::bad_alloc&) {
        settle();
        return refuse(held, ENOMEM);
    }
    park(held, sender);
    enqueue(held.ref);
    settle();
    return 0;
}

void Endpoint::discard(const Held& held) {
    pool_.free(*held.block, held.ref, held.sizeClass);
}

void Endpoint::discard(Ref ref) {
    const Held held = at(ref);
    if (held.block != nullptr) discard(held);
}

}  // namespace linx
