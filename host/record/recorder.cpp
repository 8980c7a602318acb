#include "host/record/recorder.h"

#include <algorithm>
#include <cerrno>

#include "host/system/clock.h"

namespace linx {
namespace {

uint32_t* counterOf(Refusals& refusals, int reason) {
    switch (reason) {
        case ECONNRESET:
            return &refusals.ended;
        case ESRCH:
            return &refusals.neverThere;
        case ENOMEM:
            return &refusals.noMemory;
        case EMFILE:
        case ENFILE:
            return &refusals.noDescriptors;
        default:
            return nullptr;
    }
}

}  // namespace

void Recorder::refused(const BlockRef& block, Spid to, int reason) const {
    slot_.dropped.add(1);
    uint32_t* const counter = counterOf(slot_.refused, reason);
    if (counter != nullptr) ++*counter;
    uint32_t event;
    Event& place = next(slot_, event);
    place.number.storeRelaxed(block->signal.number);
    place.size.storeRelaxed(block->size.loadRelaxed());
    place.peer.storeRelaxed(to);
    place.reason.storeRelaxed(static_cast<uint32_t>(reason));
    finish(place, event, EventKind::refused);
}

void Recorder::unsent(const BlockRef& block, Spid to, int reason) const {
    --slot_.traffic.signalsOut;
    slot_.traffic.bytesOut -= block->size.loadRelaxed();
    refused(block, to, reason);
}

void Recorder::slept(uint64_t time, const uint32_t* selection) const {
    Waiting& waiting = slot_.waiting;
    const Event* const last = latest(EventKind::sent);
    waiting.to = last == nullptr ? Spid::none : last->peer.loadRelaxed();
    waiting.sent = last == nullptr ? 0 : last->number.loadRelaxed();
    waiting.count = selection[0];
    std::copy_n(selection + 1, std::min(selection[0], Waiting::mostNumbers), waiting.numbers);
    waiting.since = time;
    uint32_t event;
    Event& place = next(slot_, event);
    place.number.storeRelaxed(lastOf(selection));
    place.size.storeRelaxed(selection[0]);
    place.time = time;
    finish(place, event, EventKind::slept);
}

void Recorder::woke(uint64_t time) const {
    slot_.waiting.since = 0;
    uint32_t event;
    Event& place = next(slot_, event);
    place.time = time;
    finish(place, event, EventKind::woke);
}

void Recorder::peerDied(Spid peer) const {
    uint32_t event;
    Event& place = next(slot_, event);
    place.peer.storeRelaxed(peer);
    finish(place, event, EventKind::peerDied);
}

void Recorder::closed() const {
    uint32_t event;
    Event& place = next(slot_, event);
    finish(place, event, EventKind::closed);
}

/// The last event of the kind that is still there.
const Event* Recorder::latest(EventKind kind) const {
    const uint32_t end = slot_.recorded.loadRelaxed();
    for (uint32_t back = 0; back < eventCount; ++back) {
        const uint32_t event = end - back * eventStep;
        const Event& place = ring_.at(event);
        if (place.event.loadRelaxed() == (event | numberOf(kind))) return &place;
    }
    return nullptr;
}

void recordOpening(Slot& slot, EventRing& ring) {
    const uint32_t event = slot.recorded.loadRelaxed() + eventStep;
    slot.recorded.storeRelaxed(event);
    Event& place = ring.at(event);
    place.time = now();
    place.event.storeRelease(event | numberOf(EventKind::opened));
}

}  // namespace linx
