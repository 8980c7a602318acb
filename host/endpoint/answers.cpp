#include "host/endpoint/answers.h"

#include <cerrno>

#include "host/arena/hunt_table.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/introduction.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"

namespace linx {
namespace {

/// Posts a pending hunt's signal to its hunter, from the endpoint just opened. The releases keep the stores in order
/// if this process dies; others are ordered by the push [pushed] or the domain lock. False when the hunter could not
/// be rung; without a descriptor for it the hunt is pending.
bool answer(const DomainLock& lock, Hunt& hunt, Spid found) {
    const Arena& arena = lock.arena();
    const HunterWord word = hunt.hunter.loadRelaxed();
    const Spid hunter = spidOf(word);
    const BlockRef signal = arena.blockAt(hunt.signal.loadRelaxed());
    bool rung = true;
    if (!isAnswering(word) && isOpen(arena, hunter) && signal && signal->owner.loadAcquire() == queuedFor(hunter)) {
        Slot& slot = arena.slot(indexOf(hunter));
        const ScopedDescriptor doorbell(doorbell::open(lock.domain().directory(), hunter));
        if (doorbell.get() == -1 && errno != ENXIO && errno != ENOENT) return false;
        signal->owner.storeRelease(inFlightTo(hunter));
        // From here on, a signal that the hunter owns counts as answered: the hunter may have taken it out of its
        // mailbox before a repair looks.
        hunt.hunter.storeRelease(answeredTo(hunter));
        signal->sender.storeRelease(found);
        // Dying before the push leaves the hunt pending, after it answered: see finishAnswering in repair.cpp. The
        // push and the look behind it are those of [wake-up].
        uint32_t introducedAt = introduction::notYet;
        if (introduction::push(slot, doorbell.get(), found, signal, introducedAt) != stack::closed) {
            const int result = wake_state::ringIfAsked(slot, hunter, indexOf(found), [&] {
                return doorbell.get() == -1 ? EPIPE : doorbell::ring(doorbell.get());
            });
            rung = result == 0 || result == EPIPE;
        } else {
            // A process died while reaping the hunter: the next reaper takes what the hunter owns, but not what is in
            // flight from a live endpoint.
            signal->owner.storeRelease(queuedFor(hunter));
        }
    }
    clearHunt(hunt);
    return rung;
}

template <class Visit>
void forEachHuntFor(const Arena& arena, const Name& name, Visit visit) {
    forEachHunt(arena, [&](Hunt& hunt) {
        const bool isMeant =
            hunt.nameHash.loadRelaxed() == name.hash() && name.equals(hunt.name, hunt.nameLength.loadRelaxed());
        if (isMeant) visit(hunt);
    });
}

}  // namespace

bool isHunted(const Arena& arena, const Name& name) {
    bool any = false;
    forEachHuntFor(arena, name, [&](Hunt&) { any = true; });
    return any;
}

bool answerHunts(const DomainLock& lock, Spid found, const Name& name) {
    bool all = true;
    forEachHuntFor(lock.arena(), name, [&](Hunt& hunt) { all = answer(lock, hunt, found) && all; });
    trimHunts(lock.arena());
    return all;
}

}  // namespace linx
