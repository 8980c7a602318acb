#ifndef LINXIPC_HOST_RECORD_RECORDER_H
#define LINXIPC_HOST_RECORD_RECORDER_H

#include "host/arena/arena.h"

namespace linx {

/*
 * Writes down what an endpoint does, for those who look into the domain: counters, what it waits for, and the last
 * events, which stay there when the process is killed. Nothing of it is read by any operation. Belongs to the
 * endpoint's thread; its parts have copies of the same.
 */
class Recorder {
public:
    /// Events go into `ring`: that of the slot in the arena, or one of the process where none are to be recorded.
    Recorder(Slot& slot, EventRing& ring) : slot_(slot), ring_(ring) {}

    /// A signal of `size` bytes is about to be sent to `to`, or is received. Inlined by order: a call would cost each
    /// message 18 instructions.
    [[gnu::always_inline]] void sent(const BlockRef& block, uint32_t size, Spid to) const {
        Slot& slot = slot_;
        ++slot.traffic.signalsOut;
        slot.traffic.bytesOut += size;
        pass(slot, block, size, to, EventKind::sent);
    }
    [[gnu::always_inline]] void received(const BlockRef& block, uint32_t size) const {
        Slot& slot = slot_;
        ++slot.traffic.signalsIn;
        slot.traffic.bytesIn += size;
        pass(slot, block, size, block->sender.loadRelaxed(), EventKind::received);
    }

    /// The event recorded last, a signal of `size` bytes sent, has not come about. Inlined too: with a call in it,
    /// every send would save registers for it.
    [[gnu::always_inline]] void notSent(uint32_t size) const {
        Slot& slot = slot_;
        --slot.traffic.signalsOut;
        slot.traffic.bytesOut -= size;
        const uint32_t event = slot.recorded.loadRelaxed();
        ring_.at(event).event.storeRelease(numberOf(EventKind::none));
        slot.recorded.storeRelease(event - eventStep);
    }

    /// A signal could not be sent to `to`, kept or delivered, for `reason`, an errno value.
    void refused(const BlockRef& block, Spid to, int reason) const;

    /// The same, after it was recorded as sent and others may have been since.
    void unsent(const BlockRef& block, Spid to, int reason) const;

    /// It begins to wait for the selected signals, or stops; times are nanoseconds of the monotonic clock.
    void slept(uint64_t time, const uint32_t* selection) const;
    void woke(uint64_t time) const;

    void peerDied(Spid peer) const;
    void closed() const;

private:
    /// The place of the next event. The count comes first: who copies the ring of a live endpoint leaves out what may
    /// be overwritten, and whoever finds a dead one's sees that this event was not finished.
    [[gnu::always_inline]] Event& next(Slot& slot, uint32_t& event) const {
        event = slot.recorded.loadRelaxed() + eventStep;
        slot.recorded.storeRelaxed(event);
        std::atomic_signal_fence(std::memory_order_seq_cst);  // a kill leaves the first part of the stores
        return ring_.at(event);
    }
    [[gnu::always_inline]] static void finish(Event& place, uint32_t event, EventKind kind) {
        place.event.storeRelease(event | numberOf(kind));
    }
    [[gnu::always_inline]] void pass(Slot& slot, const BlockRef& block, uint32_t size, Spid peer,
                                     EventKind kind) const {
        uint32_t event;
        Event& place = next(slot, event);
        place.number.storeRelaxed(block->signal.number);
        place.size.storeRelaxed(size);
        place.peer.storeRelaxed(peer);
        place.block.storeRelaxed(block.ref);
        finish(place, event, kind);
    }
    const Event* latest(EventKind kind) const;

    Slot& slot_;
    EventRing& ring_;
};

/// The number by which a wait is told: the last, because the first are often orders to end, for which everybody
/// waits. 0 where any signal will do.
inline uint32_t lastOf(const uint32_t* selection) {
    return selection[selection[0]];
}

/// Begins the record of a slot's next user: after this event there are those of no other.
void recordOpening(Slot& slot, EventRing& ring);

}  // namespace linx

#endif
