#include "host/recovery/slot_reservation.h"

#include <cerrno>

#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/introduction.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/record/recorder.h"
#include "host/recovery/retire.h"

namespace linx {
namespace {

/// A slot that was never used is closed like the others, so that an open mailbox says how far its opener has come.
void closeFresh(Slot& slot) {
    slot.mailbox.storeRelaxed(stack::headOf(stack::closed));
    slot.returned.storeRelaxed(stack::headOf(stack::closed));
}

/// Readies a slot that nobody else looks at yet. Its life says the new spid already and open last. Relaxed: [opened]
/// publishes it; the length is a release like the words of the name [name]. A sender that was held up may meet the
/// slot half ready: it changes the wake state by compare-and-swaps that expect its own generation, and leaves a stray
/// in the mailbox.
void prepare(Slot& slot, Spid spid, const Name& name, uint32_t options, const Maker& maker) {
    slot.wakeState.storeRelaxed(wake_state::word(spid, wake_state::parked));
    if (slot.partings.loadRelaxed() == introduction::notYet) slot.partings.storeRelaxed(introduction::notYet + 1);
    slot.mailboxClaim.storeRelaxed(Ref::none);
    slot.returnedClaim.storeRelaxed(Ref::none);
    slot.sending.storeRelaxed(Ref::none);
    slot.deepestQueue.storeRelaxed(0);
    share::begin(slot, spid);
    slot.returnedLines.storeRelaxed(0);
    slot.forkRound.addRelaxed(1);  // so that no forked copy of an earlier user matches it again
    slot.sleeps.storeRelaxed(0);
    slot.rings.storeRelaxed(0);
    slot.dropped.low.storeRelaxed(0);
    slot.dropped.high.storeRelaxed(0);
    slot.refused = {};
    slot.traffic = {};
    slot.waiting = {};
    slot.maker = maker;
    slot.options.storeRelaxed(options);
    slot.nameHash.storeRelaxed(name.hash());
    slot.nameLength.storeRelease(name.length());
    name.writeTo(slot.name);
}

}  // namespace

SlotReservation::SlotReservation(const DomainLock& lock, const Name& name, uint32_t options, const Maker& maker)
    : lock_(lock) {
    if (!makeWay(name)) return;
    const SlotIndex index = reserveSlot();
    if (index == SlotIndex::none) return;
    before_ = lock.arena().slot(index).life.loadRelaxed();
    if (!removeLeftover(index)) return;
    spid_ = makeSpid(index, generationOf(spidOf(before_)) + 1);
    if (before_ == LifeWord::neverUsed) closeFresh(slot());
    slot().life.storeRelease(
        closedAs(spid_));  // before the doorbell, which nobody would find otherwise if this process dies
    doorbell_.reset(doorbell::make(lock.domain().directory(), spid_, lock.domain().fileMode()));
    if (doorbell_.get() == -1) return;
    prepare(slot(), spid_, name, options, maker);
    recordOpening(slot(), lock.arena().events(index));
    isReady_ = true;
}

SlotReservation::~SlotReservation() {
    if (spid_ == Spid::none || isOpened_) return;
    const int failure = errno;
    const bool isGone = doorbell::remove(lock_.domain().directory(), spid_);
    // The previous user's name stays available unless it was overwritten. If the doorbell cannot be removed, the slot
    // keeps naming its spid, so that the repair finds it.
    if (isGone && !isReady_) slot().life.storeRelease(before_);
    quarantine(lock_.arena(), indexOf(spid_));
    errno = failure;
}

void SlotReservation::commit() {
    const Arena& arena = lock_.arena();
    insertName(arena, indexOf(spid_));
    // Only now, so that a slot that is not opened after all takes nothing. The mailbox first, and by releases: if
    // this process dies before the endpoint is open, the repair opens it where it finds its mailbox open.
    slot().mailbox.storeRelease(stack::headOf(stack::empty, introduction::tagAt(slot().partings.loadRelaxed())));
    slot().returned.storeRelease(stack::headOf(stack::empty));
    // The one store that opens the endpoint. Release [opened]: all that is in the slot is seen with it.
    slot().life.storeRelease(openAs(spid_));
    countOpened(arena);
    isOpened_ = true;
}

/// Whether nobody has the name, or has it no longer: a dead endpoint of the name is reaped.
bool SlotReservation::makeWay(const Name& name) const {
    const Spid holder = findName(lock_.arena(), name);
    if (holder == Spid::none) return true;
    errno = EADDRINUSE;
    if (!hasDied(lock_.domain(), holder)) return false;
    reapAllDeadIfDue(lock_);  // others may have died with it, whose names are wanted next
    reap(lock_, &holder, 1);
    return true;
}

/// Removes the doorbell of the slot's previous user, who may have lacked the right to. Once the slot names another,
/// nobody would find it any more: so the slot is not used while it cannot be removed. False with errno.
bool SlotReservation::removeLeftover(SlotIndex index) const {
    if (before_ == LifeWord::neverUsed || doorbell::remove(lock_.domain().directory(), spidOf(before_))) return true;
    const int failure = errno;
    quarantine(lock_.arena(), index);
    errno = failure;
    return false;
}

SlotIndex SlotReservation::reserveSlot() const {
    const SlotIndex index = takeSlot(lock_.arena());
    return index == SlotIndex::none && reapAllDeadIfDue(lock_) ? takeSlot(lock_.arena()) : index;
}

}  // namespace linx
