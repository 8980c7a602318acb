#ifndef LINXIPC_HOST_ARENA_EVENT_H
#define LINXIPC_HOST_ARENA_EVENT_H

#include <cstddef>

#include "host/arena/ref.h"
#include "host/arena/spid.h"
#include "host/arena/word.h"

namespace linx {

/// What can happen at an endpoint. Which fields of the event say something stands beside it; where a time is given,
/// it was asked for anyway.
enum class EventKind : uint32_t {
    none,
    opened,    ///< its first; time
    sent,      ///< number, size, peer, block
    received,  ///< number, size, peer, block
    refused,   ///< number, size, peer, reason (an errno value): a signal that was not sent
    slept,     ///< number: the last that it waits for; size: how many it waits for, 0 any; time
    woke,      ///< time
    peerDied,  ///< peer; or it has ended
    closed     ///< its last
};

constexpr uint32_t eventKindBits = 4;

/// An event is known by its count, which goes on from one user of the slot to the next, with its kind in the lower
/// bits.
constexpr uint32_t eventStep = 1u << eventKindBits;
constexpr EventKind kindOf(uint32_t event) {
    return EventKind{event % eventStep};
}
constexpr uint32_t countOf(uint32_t event) {
    return event / eventStep;
}

/// An event as the endpoint writes it: only the last store makes it one.
struct alignas(8) Event {
    ToldWord number;
    ToldWord size;
    WordOf<Spid, Told> peer;
    WordOf<Ref, Told> block;
    uint64_t time;  ///< nanoseconds of the monotonic clock
    ToldWord reason;
    ToldWord event;  ///< count and kind; an event of another count is an older one, or half written
};
static_assert(sizeof(Event) == 32 && offsetof(Event, time) == 16 && offsetof(Event, event) == 28 &&
                  std::is_standard_layout<Event>::value,
              "the event's layout is shared by every process of the domain");

constexpr uint32_t eventCount = 64;

/*
 * The last events of a slot, each in the place that its count says. While nobody is at work:
 *
 *   the kinds of its events are known
 *   its events since it was opened are whole, but for the last      which its endpoint may have died amid
 *   and the oldest                                                  whose place one had that was taken back
 */
struct EventRing {
    Event events[eventCount];

    /// By its offset in bytes: two instructions, where compilers make three of an index.
    Event& at(uint32_t event) {
        static_assert(sizeof(Event) == 2 * eventStep, "twice the event's number counts bytes");
        constexpr uint32_t offsets = (eventCount - 1) * sizeof(Event);
        return *reinterpret_cast<Event*>(reinterpret_cast<char*>(events) + (2 * event & offsets));
    }
    const Event& at(uint32_t event) const { return const_cast<EventRing*>(this)->at(event); }
};

}  // namespace linx

#endif
