#ifndef LINXIPC_HOST_ENDPOINT_SIGNALS_H
#define LINXIPC_HOST_ENDPOINT_SIGNALS_H

#include "host/endpoint/identity.h"
#include "host/pool/pool.h"
#include "host/record/probes.h"

namespace linx {

/// The signals of an endpoint: which ones its user holds, and how they come into the user's hands and out of them. A
/// block is the endpoint's in either case, as its owner word says.
class Signals {
public:
    explicit Signals(const Identity& self) : self_(self), pool_(self.domain, self.spid) {}

    Pool& pool() { return pool_; }

    /// A new signal for the user. Null with errno: EINVAL, EMSGSIZE, or what the pool says.
    LinxSignal* allocate(uint32_t size, uint32_t number);

    /// Makes a signal of a free block and gives it to the user.
    LinxSignal* give(BlockRef block, uint32_t size, uint32_t number);

    /// Whether an arrived signal is still this endpoint's; not if this was reaped because its doorbell was removed.
    bool isQueued(const BlockRef& block) const { return block->owner.loadRelaxed() == queuedFor(self_.spid); }

    /// Gives the user one that has arrived, and returns its size.
    int handOut(const BlockRef& block, LinxSignal** signal);

    /// The signal that the user holds at this address; no block when none is there.
    BlockRef heldAt(const LinxSignal* signal) const;

    /// Whether it is the signal that the user was given last, and still has.
    bool isRecent(const LinxSignal* signal) const;

    /// That signal, built member by member: cheaper than copying the struct.
    BlockRef recent() const { return {recent_.block, recent_.ref, recent_.sizeClass}; }

    /// The user does not hold it any more.
    void letGo(LinxSignal** signal) {
        *signal = nullptr;
        --held_;
    }

    /// The user holds it still.
    void handBack(const BlockRef& block, LinxSignal** signal) {
        *signal = &block->signal;
        ++held_;
    }

    /// Takes a signal out of the user's hands; no block with errno EINVAL when the user holds none there.
    BlockRef takeOver(LinxSignal** signal);

    /// Keeps a signal that was taken over; it will arrive from `sender`.
    void markQueued(const BlockRef& block, Spid sender);

    /// Counts a taken-over signal as held by the user, though it will not be seen again.
    void keep() { ++held_; }

    /// Whether the user holds none, nor any is kept.
    bool noneHeld() const { return held_ == 0; }

    /// A signal that was taken over cannot be sent (to `to`), kept or delivered, for `reason`: frees it. Returns -1
    /// with errno.
    int refuse(const BlockRef& block, int reason, Spid to = Spid::none);

    void discard(const BlockRef& block) { pool_.free(block); }
    void discard(Ref ref);

private:
    static Block noBlock;  ///< nobody's, and no signal's

    const Identity self_;
    Pool pool_;
    uint32_t held_ = 0;
    BlockRef recent_{&noBlock};  ///< given to the user last: most often the one that comes back next
};

inline bool Signals::isRecent(const LinxSignal* signal) const {
    // While the owner is this endpoint, the block has not been reused. Compared as numbers: the address may belong to
    // no block. Relaxed: if the owner is this endpoint, it wrote that itself.
    return reinterpret_cast<uintptr_t>(signal) - offsetof(Block, signal) ==
               reinterpret_cast<uintptr_t>(recent_.block) &&
           recent_.block->owner.loadRelaxed() == heldBy(self_.spid);
}

inline LinxSignal* Signals::give(BlockRef block, uint32_t size, uint32_t number) {
    const Spid own = self_.spid;
    block->owner.storeRelaxed(heldBy(own));
    block->sender.storeRelaxed(own);
    block->size.storeRelaxed(size);
    block->signal.number = number;
    ++held_;
    recent_ = block;
    return &block->signal;
}

/// Inlined by order: a call would cost each message 21 instructions.
[[gnu::always_inline]] inline int Signals::handOut(const BlockRef& block, LinxSignal** signal) {
    // Sizes come from other processes: none reaches beyond its block.
    constexpr auto least = static_cast<uint32_t>(sizeof(LinxSignal));
    const uint32_t room = payloadRoom[block.sizeClass];
    uint32_t size = block->size.loadRelaxed();
    if (size - least > room) {
        size = size < least ? least : least + room;
        block->size.storeRelaxed(size);
    }
    block->owner.storeRelaxed(heldBy(self_.spid));
    probes::receive(self_.spid, block->signal.number, size);
    self_.record.received(block, size);
    ++held_;
    recent_ = block;
    *signal = &block->signal;
    if (size == 0) __builtin_unreachable();  // the callers need not ask
    return static_cast<int>(size);
}

}  // namespace linx

#endif
