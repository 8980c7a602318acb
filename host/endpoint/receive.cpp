#include <sched.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/endpoint/event_tags.h"
#include "host/endpoint/fast_path.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/recovery/retire.h"
#include "host/system/clock.h"

/*
 * The descriptor tells the truth because every operation that changes the queue ends with updateReadiness(): the
 * doorbell holds a byte while the queue or the mailbox holds a signal, and none once both are empty.
 */
namespace linx {
namespace {

constexpr uint64_t nanosecondsPerMillisecond = 1000000;
constexpr uint64_t alone = 1000;  ///< nanoseconds of spinning after which an answer seems to want this processor

void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

/// For epoll_wait: rounded up, so that a wait does not end before its deadline.
int millisecondsUntil(uint64_t deadline, uint64_t from) {
    if (deadline == Timers::never) return -1;
    if (deadline <= from) return 0;
    const uint64_t left = (deadline - from + nanosecondsPerMillisecond - 1) / nanosecondsPerMillisecond;
    return static_cast<int>(std::min<uint64_t>(left, 1u << 30));
}

}  // namespace

int Endpoint::receive(LinxSignal** signal, const uint32_t* milliseconds, const uint32_t* selection) {
    *signal = nullptr;
    BlockRef block = {};
    try {
        if (timers_.earliest() != Timers::never || peers_.supervising() || pool_.isUnderPressure()) noticeEvents();
        block = takeQueued(selection);
        if (!block) block = await(milliseconds, selection);
        updateReadiness();
    } catch (const std::bad_alloc&) {
        // What could not be taken waits in the mailbox: the descriptor says so, and the next call tries again.
        notifySelf();
        if (!block) throw;
    }
    if (block) {
        timers_.received(block.ref);
        return handOut(block, signal);
    }
    if (isStillOpen() && !waitFailed_) return 0;
    errno = ECONNABORTED;
    return -1;
}

/// The oldest signal of the queue that the selection allows; no block when there is none.
BlockRef Endpoint::takeQueued(const uint32_t* selection) {
    const SignalQueue::Signal signal = queue_.take(selection);
    return signal.ref == 0 ? BlockRef{} : blockAt(signal);
}

BlockRef Endpoint::await(const uint32_t* milliseconds, const uint32_t* selection) {
    waitFailed_ = false;
    if (!isStillOpen()) return {};
    markAwake();
    takeMailbox();
    BlockRef block = takeQueued(selection);
    if (block) return block;
    const bool mayWait = milliseconds == nullptr || *milliseconds != 0;
    const uint64_t deadline =
        milliseconds == nullptr ? Timers::never : (mayWait ? now() + *milliseconds * nanosecondsPerMillisecond : 0);
    for (;;) {
        const bool sawSomething = mayWait && spin(deadline);
        const bool expired = !sawSomething && sleep(deadline, mayWait);
        takeMailbox();
        block = takeQueued(selection);
        if (block || expired) return block;
        if (!sawSomething) continue;
        noticeEvents();  // while others send without end what is not awaited, it never sleeps
        block = takeQueued(selection);
        if (block) return block;
    }
}

void Endpoint::markAwake() {
    // An exchange, to learn whether a byte is in. One that a sender is about to write comes late, and is
    // found in the doorbell by the next sleep.
    const uint32_t before = slot().wakeState.exchangeSeqCst(wake_state::word(spid_, wake_state::awake));
    if (wake_state::stateOf(before) == wake_state::notified) byteIn_ = true;
    awake_ = true;
}

/// Looks at the mailbox while the budget lasts. True when a signal came or a time-out fell due.
bool Endpoint::spin(uint64_t deadline) {
    const uint64_t wake = std::min(deadline, timers_.earliest());
    if (budget_.nanoseconds() == 0) return yieldOnce(wake);
    const uint64_t start = now();
    uint64_t time = start;
    while (time < start + budget_.nanoseconds() && time < wake) {
        for (int i = 0; i < 32; ++i) {
            if (stack::holdsBlocks(slot().mailbox.loadRelaxed())) {  // relaxed: the take acquires
                budget_.foundWhileSpinning();
                return true;
            }
            relax();
        }
        // The peer may have been put on this very processor: then it runs now.
        if (time - start > alone) sched_yield();
        time = now();
    }
    if (timers_.earliest() > time) return false;
    fireTimeouts();
    return true;
}

/// Lets other processes run once, which may send, unless it is time to wake. True when a signal came.
bool Endpoint::yieldOnce(uint64_t wake) {
    if (!budget_.mayYield()) return false;
    const uint64_t start = now();
    if (start >= wake) return false;
    sched_yield();
    const bool found = stack::holdsBlocks(slot().mailbox.loadRelaxed());  // relaxed: the take acquires
    budget_.yielded(now() - start, found);
    return found;
}

/// Sleeps until something happens, or only asks what has happened. True when the deadline has passed, or when there
/// is nothing to wait for because somebody ended this endpoint or closed its descriptors.
bool Endpoint::sleep(uint64_t deadline, bool mayWait) {
    if (!isStillOpen()) return true;
    if (hasChores()) doChores();
    remindUnrung();
    const size_t queued = queue_.size();
    drainDoorbell();
    if (missedEnds_) findEndedPeers();
    if (queue_.size() != queued) return false;  // somebody's end came with the doorbell
    slot().wakeState.storeSeqCst(wake_state::word(spid_, wake_state::parked));  // (C), see wake_state.h
    awake_ = false;
    const bool sleeps = !stack::holdsBlocks(slot().mailbox.loadSeqCst()) && mayWait;  // (D)
    const uint64_t start = mayWait ? now() : 0;
    // Also when a signal has forestalled the sleep: one may come each time, and time-outs and ends must not wait for
    // the last.
    handleEvents(sleeps ? millisecondsUntil(std::min(deadline, debtDue(start)), start) : 0);
    const uint64_t end = mayWait ? now() : 0;
    if (sleeps) budget_.sleptFor(end - start);
    if (waitFailed_ || !isStillOpen()) return true;
    markAwake();
    return !mayWait || end >= deadline;
}

/// Whoever was sent the last signal did not ask to be rung. Should the signal still lie in its mailbox, its wake
/// state may have been garbled: nothing would wake it while this endpoint waits for its answer.
void Endpoint::remindUnrung() {
    Peer* peer = peers_.unrung();
    if (peer == nullptr) return;
    peers_.noteUnrung(nullptr);
    if (stack::holdsBlocks(peer->slot.mailbox.loadRelaxed())) doorbell::ring(peer->doorbell.get());
}

/// When a sleep must end because others wait for what is still owed them, which is tried less and less often.
uint64_t Endpoint::debtDue(uint64_t from) const {
    return owesOthers() ? from + std::max(debtPause_, 1u) * nanosecondsPerMillisecond : Timers::never;
}

/// What a busy endpoint must not miss though its queue never runs dry: time-outs, the deaths of peers, and that
/// others want memory.
void Endpoint::noticeEvents() {
    if (pool_.isUnderPressure()) pool_.yieldToPressure();
    if (timers_.earliest() != Timers::never && timers_.earliest() <= now()) fireTimeouts();
    if (!peers_.supervising()) return;
    const uint64_t tick = coarseMilliseconds();
    if (tick == eventsSeenAt_) return;
    eventsSeenAt_ = tick;
    handleEvents(0);
}

void Endpoint::handleEvents(int milliseconds) {
    if (milliseconds != 0) slot().sleeps.storeRelaxed(slot().sleeps.loadRelaxed() + 1);
    constexpr int most = 16;
    epoll_event events[most];
    int count;
    do {
        count = epoll_wait(epoll_.get(), events, most, milliseconds);
        waitFailed_ = count == -1 && errno != EINTR;
        milliseconds = 0;
        for (int i = 0; i < count; ++i) {
            const uint32_t tag = events[i].data.u32;
            if (tag == event_tag::doorbell) {
                byteIn_ = true;
            } else if (tag == event_tag::timer) {
                fireTimeouts();
            } else if (const Peer* peer = peers_.inSlot(tag)) {
                // Ask again: the slot may be another endpoint's by now, which lives.
                if (hasEnded(*peer)) onPeerDeath(tag);
            }
        }
    } while (count == most);
    reapDead(DomainLock::Patience::tryOnce);  // all that this brought, together
}

void Endpoint::takeMailbox() {
    if (claimedChain_ != 0) queueTaken();  // what there was no memory for comes before what has come since
    Slot& own = slot();
    if (!stack::holdsBlocks(own.mailbox.loadRelaxed()) || !isStillOpen()) return;  // relaxed: as in take
    claimedChain_ = stack::takeAll(own.mailbox, own.mailboxClaim, stack::empty);
    if (claimedChain_ != 0) queueTaken();
}

void Endpoint::queueTaken() {
    Slot& own = slot();
    const bool strays = queueChain();
    const Ref chain = claimedChain_;
    if (strays) ownStrays(chain);
    claimedChain_ = 0;
    own.mailboxClaim.storeRelease(0);  // (I), after the last block got its owner
    if (strays) takeStrays(chain);
    if (queue_.size() > own.deepestQueue.loadRelaxed()) {
        own.deepestQueue.storeRelaxed(static_cast<uint32_t>(queue_.size()));
    }
}

/// Takes the mailbox. False when there is no memory for what is in it.
bool Endpoint::takeMailboxIfRoom() {
    try {
        takeMailbox();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Moves the chain that was taken into the queue, oldest first. Tells whether there are strays in it. Out of memory,
/// everything is as before: the chain is still claimed, and taken up again.
bool Endpoint::queueChain() {
    const size_t before = queue_.size();
    bool strays = false;
    try {
        stack::walk(arena(), claimedChain_, [&](BlockRef block) {
            const uint32_t owner = block->owner.loadAcquire();  // the take would do (F), as for the number
            if (owner == (spid_ | ownerInFlight)) {
                queue_.append({block.ref, block.sizeClass}, block->signal.number);
                block->owner.storeRelaxed(spid_ | ownerQueued);
            } else if ((owner & ownerInFlight) != 0 && indexOf(owner) == indexOf(spid_)) {
                strays = true;
            }
        });
    } catch (const std::bad_alloc&) {
        queue_.dropLast(queue_.size() - before);
        stack::walk(arena(), claimedChain_, [&](BlockRef block) {
            const uint32_t owner = block->owner.loadRelaxed();
            if (owner == (spid_ | ownerQueued)) block->owner.storeRelease(spid_ | ownerInFlight);
        });
        throw;
    }
    queue_.reverseLast(queue_.size() - before);
    return strays;
}

/// What is still on its way in the chain was sent to an earlier user of the slot: for the reaper it is this one's
/// now.
void Endpoint::ownStrays(Ref chain) {
    stack::walk(arena(), chain, [&](BlockRef block) {
        const uint32_t owner = block->owner.loadRelaxed();
        if ((owner & ownerInFlight) != 0 && indexOf(owner) == indexOf(spid_)) block->owner.storeRelaxed(spid_);
    });
}

/// Frees what was sent to an earlier user of the slot by somebody who was held up: it ended with that one. Not before
/// the whole chain has its owners, since freeing a block breaks the chain.
void Endpoint::takeStrays(Ref chain) {
    stack::walk(arena(), chain, [&](BlockRef block) {
        if (block->owner.loadRelaxed() != spid_) return;
        slot().dropped.add(1);
        pool_.free(block);
    });
}

void Endpoint::enqueue(Ref ref) {
    const BlockRef block = arena().blockAt(ref);
    if (!block) return;
    queue_.append({ref, block.sizeClass}, block->signal.number);
}

void Endpoint::fireTimeouts() {
    const uint64_t time = now();
    timers_.called(time);
    if (timers_.earliest() <= time) takeMailbox();  // what was sent before it fell due comes before
    while (const Ref ref = timers_.due(time)) {
        const BlockRef block = arena().blockAt(ref);
        if (!block) {
            timers_.takeAny();  // somebody has garbled what the block lies in
            continue;
        }
        // In this order: out of memory it has not fired.
        timers_.fire(queue_.appendRemovable({ref, block.sizeClass}, block->signal.number));
    }
    timers_.arm();
}

/// The doorbell was full: a record may have been dropped that tells of an end, or introduces a sender.
void Endpoint::missRecords() {
    missedEnds_ = true;
    introduction::revoke(slot());
}

/// Takes the bytes out. May bring signals: the notices of a peer that introduced itself and has ended since.
void Endpoint::drainDoorbell() {
    if (!byteIn_) return;
    uint32_t records[doorbell::capacity];
    uint32_t count;
    do {
        count = doorbell::drain(doorbell_.get(), records);
        byteIn_ = false;
        std::for_each(records, records + count, [this](uint32_t record) { readRecord(record); });
        if (count == doorbell::capacity) missRecords();
    } while (count == doorbell::capacity);
    if (pool_.isUnderPressure()) pool_.yieldToPressure();  // the bytes may have told of that as well as of a signal
    // What was taken from the mailbox meanwhile, and what there was no memory for, must not be slept over.
    if (claimedChain_ != 0 || (missedEnds_ && !findEndedPeersIfRoom()))
        byteIn_ = doorbell::ring(doorbell_.get()) == 0;
}

/// Puts a byte in, if none is known to be in. A failure to do so is made good by the next update.
void Endpoint::notifySelf() {
    const uint32_t before = slot().wakeState.exchangeSeqCst(wake_state::word(spid_, wake_state::notified));
    awake_ = false;
    byteIn_ = byteIn_ || wake_state::stateOf(before) == wake_state::notified || doorbell::ring(doorbell_.get()) == 0;
    // Relaxed, unlike (C): no look at the mailbox follows.
    if (!byteIn_) slot().wakeState.storeRelaxed(wake_state::word(spid_, wake_state::parked));
}

/// Makes the descriptor true again: see the top of this file.
void Endpoint::changeReadiness() {
    if (!isStillOpen()) return;
    const int keptErrno = errno;
    makeDescriptorTrue();
    if (owesOthers()) {
        callLater();
    } else {
        timers_.callOff();
    }
    errno = keptErrno;
}

/// Has the descriptor become readable when what is owed others is to be tried again: the user may wait on nothing
/// else. Where there is no timer to be had, others wait until something else happens.
void Endpoint::callLater() {
    if (watchTimer()) timers_.callAt(debtDue(now()));
}

void Endpoint::makeDescriptorTrue() {
    for (;;) {
        if (queue_.empty() && !takeMailboxIfRoom()) break;
        if (!queue_.empty()) break;
        if (!awake_ && !byteIn_) return;
        // The byte first: one that a sender writes after it has seen parked must stay in.
        drainDoorbell();
        slot().wakeState.storeSeqCst(wake_state::word(spid_, wake_state::parked));  // (C)
        awake_ = false;
        if (queue_.empty() && !stack::holdsBlocks(slot().mailbox.loadSeqCst())) return;  // (D)
    }
    if (awake_ || !byteIn_) notifySelf();
}

/// Makes the timer's descriptor and watches it, if that is still to be done. False with errno.
bool Endpoint::watchTimer() {
    if (timers_.descriptor() != -1) return true;
    if (timers_.open() == -1) return false;
    if (watch(epoll_.get(), timers_.descriptor(), EPOLLIN, event_tag::timer)) return true;
    const int failure = errno;
    timers_.close();  // the next one must try again to have it watched
    errno = failure;
    return false;
}

LinxRef Endpoint::requestTimeout(uint32_t milliseconds, LinxSignal** signal) {
    BlockRef block;
    if (!takeOver(signal, LINX_OS_TIMEOUT_SIG, block)) return 0;
    while (!watchTimer()) {
        if (makeRoom()) continue;
        refuse(block, errno);
        return 0;
    }
    const LinxRef reference = nextReference();
    try {
        timers_.add(reference, now() + milliseconds * nanosecondsPerMillisecond, block.ref);
    } catch (const std::bad_alloc&) {
        refuse(block, ENOMEM);
        return 0;
    }
    park(block, spid_);
    return reference;
}

int Endpoint::cancelTimeout(LinxRef* reference) {
    const Timers::Cancelled timeout = timers_.cancel(*reference);
    const BlockRef block = arena().blockAt(timeout.signal);
    const bool isKnown = timeout.signal != 0 && (!timeout.hadFired || queue_.remove(timeout.signal, timeout.place));
    if (!isKnown || !block) {
        errno = EINVAL;
        return -1;
    }
    discard(block);
    updateReadiness();
    *reference = 0;
    return 0;
}

}  // namespace linx
