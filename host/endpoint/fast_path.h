#ifndef LINXIPC_HOST_ENDPOINT_FAST_PATH_H
#define LINXIPC_HOST_ENDPOINT_FAST_PATH_H

#include "host/endpoint/endpoint.h"
#include "host/mailbox/introduction.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"

/*
 * The operations as they go most of the time: no lock is wanted, nobody has to be woken, everybody is known. They lie
 * in a header, for linx.cpp, and call nothing, so that a signal passes through few instructions. One that finds
 * things otherwise leaves everything as it was; then the operation is done in full, from the start, by a function of
 * its own.
 */
namespace linx {

[[gnu::always_inline]] inline bool Endpoint::enterAtOnce() {
    const uint32_t entry = entry_.load(std::memory_order_relaxed);
    if (entry == inside) return false;
    entry_.store(inside, std::memory_order_relaxed);
    forks::afterEntering();
    if (entry == forks::stamp()) return true;
    entry_.store(entry, std::memory_order_relaxed);
    return false;
}

/// Whether it is the signal that the user was given last, and still has.
inline bool Endpoint::isRecent(const LinxSignal* signal) const {
    // If the block is still this endpoint's, nobody has made another of it. As numbers: the address may have nothing
    // to do with any block. Relaxed: it was this endpoint that wrote the owner, if it is its own.
    return reinterpret_cast<uintptr_t>(signal) - offsetof(Block, signal) ==
               reinterpret_cast<uintptr_t>(recent_.block) &&
           recent_.block->owner.loadRelaxed() == spid_;
}

/// Makes a signal of a free block and gives it to the user.
inline LinxSignal* Endpoint::give(BlockRef block, uint32_t size, uint32_t number) {
    block->owner.storeRelaxed(spid_);
    block->sender.storeRelaxed(spid_);
    block->size.storeRelaxed(size);
    block->signal.number = number;
    ++held_;
    recent_ = block;
    return &block->signal;
}

inline LinxSignal* Endpoint::allocateAtOnce(uint32_t size, uint32_t number) {
    if (!isSignalSize(size) || !enterAtOnce()) return nullptr;
    const BlockRef block = pool_.popAtOnce(classForLines(linesForSignal(size)));
    LinxSignal* signal = block ? give(block, size, number) : nullptr;
    exit();
    return signal;
}

inline bool Endpoint::freeAtOnce(LinxSignal** signal) {
    if (!isRecent(*signal) || !enterAtOnce()) return false;
    const BlockRef block = recent_;
    const bool gone = pool_.giveBackAtOnce(block);
    if (gone) {
        *signal = nullptr;
        --held_;
    }
    exit();
    return gone;
}

inline bool Endpoint::senderAtOnce(const LinxSignal* signal, Spid& sender) const {
    if (entry_.load(std::memory_order_relaxed) != forks::stamp() || !isRecent(signal)) return false;
    sender = recent_.block->sender.loadRelaxed() & spidMask;
    return true;
}

/// Has `push` push the signal onto the mailbox in the peer's slot.
template <class Push>
Endpoint::Posted Endpoint::post(const BlockRef& block, Peer& peer, Push push) {
    Slot& target = peer.slot;
    Slot& own = slot_;
    const Spid to = peer.spid;
    const Spid from = spid_;
    // Its mailbox may be another endpoint's by now, which would have to throw the signal away. Acquire: as in isOpen.
    if (target.life.loadAcquire() != (to | lifeOpen)) return Posted::refused;
    own.sending.storeRelease(block.ref);  // (J), after the push before this one
    block->sender.storeRelaxed(from);
    // Release: (E), the target's reaper looks at blocks that are about to be pushed, and must not find the new owner
    // beside an old sender.
    block->owner.storeRelease(to | ownerInFlight);
    const uint32_t before = push(target);
    if (stack::isRefused(before)) {
        block->owner.storeRelaxed(from);
        return Posted::refused;
    }
    const uint32_t found = target.wakeState.loadSeqCst();  // (B), see wake_state.h
    if (wake_state::wantsRing(found, to)) return Posted::wantsRing;
    peers_.noteUnrung(&peer);
    return before == stack::empty || peer.sendsUntilCheck-- != 0 ? Posted::done : Posted::wantsReminder;
}

inline Endpoint::Posted Endpoint::sendAtOnce(LinxSignal** signal, Spid to) {
    Peer* peer = peers_.latest(to);
    if (peer == nullptr || !isRecent(*signal) || !enterAtOnce()) return Posted::refused;
    const BlockRef block = recent_;
    const uint32_t introducedAt = peer->introducedAt;
    const Posted posted =
        introducedAt != peer->slot.partings.loadRelaxed()  // relaxed: the push by tag decides
            ? Posted::refused
            : post(block, *peer, [&](Slot& target) {
                  return stack::push(target.mailbox, *block, block.ref, introduction::tagAt(introducedAt));
              });
    if (posted != Posted::refused) {
        *signal = nullptr;
        --held_;
    }
    if (posted == Posted::done || posted == Posted::refused) exit();
    return posted;
}

/// Whether a receive of any signal has nothing to do but to take one: no time-out or end of a peer can be due,
/// another signal stays in the queue, and the descriptor says so.
inline bool Endpoint::isBusy() const {
    return queue_.hasSeveralArrivals() && timers_.idle() && !peers_.supervising() && byteIn_ && !awake_;
}

/// Gives a signal of the queue to the user and returns its size.
[[gnu::always_inline]] inline int Endpoint::handOut(const BlockRef& block, LinxSignal** signal) {
    // Sizes come from other processes: none reaches beyond its block.
    const uint32_t room =
        sizeClasses[block.sizeClass].lines * lineBytes - static_cast<uint32_t>(offsetof(Block, signal));
    uint32_t size = block->size.loadRelaxed();
    if (size < sizeof(LinxSignal) || size > room) {
        size = size < sizeof(LinxSignal) ? static_cast<uint32_t>(sizeof(LinxSignal)) : room;
        block->size.storeRelaxed(size);
    }
    block->owner.storeRelaxed(spid_);
    ++held_;
    recent_ = block;
    *signal = &block->signal;
    return static_cast<int>(size);
}

inline int Endpoint::receiveAtOnce(LinxSignal** signal, const uint32_t* selection) {
    if (selection[0] != 0 || !isBusy() || !enterAtOnce()) return 0;
    const int size = handOut(blockAt(queue_.takeArrival()), signal);
    exit();
    return size;
}

}  // namespace linx

#endif
