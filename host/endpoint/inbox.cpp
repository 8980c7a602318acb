#include "host/endpoint/inbox.h"

#include <sched.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "host/endpoint/event_tags.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/record/probes.h"
#include "host/system/clock.h"

namespace linx {
namespace {

constexpr uint64_t alone = 1000;  ///< nanoseconds of spinning before assuming that the peer needs this processor

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

Inbox::Inbox(const Identity& self, Signals& signals, Peers& peers, int epoll, ScopedDescriptor& doorbell,
             const SpinBudget& budget)
    : self_(self),
      signals_(signals),
      peers_(peers),
      epoll_(epoll),
      doorbell_(doorbell.release()),
      budget_(budget),
      timeouts_(self_, epoll) {}

void Inbox::markAwake() {
    // An exchange, to learn whether the doorbell holds a byte. One that a sender is still about to write is found by
    // the next sleep.
    const WakeWord before = self_.slot.wakeState.exchangeSeqCst(wake_state::word(self_.spid, wake_state::awake));
    if (wake_state::stateOf(before) == wake_state::notified) byteIn_ = true;
    awake_ = true;
}

/// Stores that senders have to ring again. False when something came just before.
bool Inbox::park() {
    self_.slot.wakeState.storeSeqCst(wake_state::word(self_.spid, wake_state::parked));  // [wake-up]
    awake_ = false;
    return !stack::holdsBlocks(self_.slot.mailbox.loadSeqCst());  // [wake-up]
}

bool Inbox::hasMail() const {
    return stack::holdsBlocks(self_.slot.mailbox.loadRelaxed());  // relaxed: the take acquires
}

void Inbox::collect() {
    takeMailbox();
    peers_.leftMailTaken();
    if (peers_.hasEnded()) peers_.deliverNotices(queue_);
}

bool Inbox::collectIfRoom() {
    try {
        collect();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void Inbox::takeMailbox() {
    if (claimedChain_ != Ref::none) queueClaimed();  // what there was no memory for comes before what has come since
    if (!hasMail() || !self_.isStillOpen()) return;
    claimedChain_ = stack::claimAll(self_.slot.mailbox, self_.slot.mailboxClaim, stack::empty);
    if (claimedChain_ != Ref::none) queueClaimed();
}

void Inbox::queueClaimed() {
    queueChain();
    const Ref chain = std::exchange(claimedChain_, Ref::none);
    stack::release(self_.slot.mailboxClaim);
    if (std::exchange(hasStrays_, false)) freeStrays(chain);
    if (queue_.size() > self_.slot.deepestQueue.loadRelaxed()) {
        self_.slot.deepestQueue.storeRelaxed(static_cast<uint32_t>(queue_.size()));
    }
}

/// Moves the claimed chain into the queue, oldest first. Out of memory, everything is as before: the chain is still
/// claimed, and taken up again.
void Inbox::queueChain() {
    const size_t before = queue_.size();
    const Spid own = self_.spid;
    try {
        stack::walk(self_.arena(), claimedChain_, [&](BlockRef block) {
            const OwnerWord owner = block->owner.loadAcquire();  // relaxed would do: ordered by [pushed]
            if (owner == inFlightTo(own)) {
                queue_.append({block.ref, block.sizeClass}, block->signal.number);
                block->owner.storeRelaxed(queuedFor(own));
            } else if (isInFlightTo(owner, indexOf(own))) {
                // Sent to an earlier user of the slot: marked as this one's for a reaper.
                block->owner.storeRelaxed(heldBy(own));
                hasStrays_ = true;
            }
        });
    } catch (const std::bad_alloc&) {
        queue_.dropLast(queue_.size() - before);
        stack::walk(self_.arena(), claimedChain_, [&](BlockRef block) {
            const bool isQueued = block->owner.loadRelaxed() == queuedFor(own);
            if (isQueued) block->owner.storeRelease(inFlightTo(own));
        });
        throw;
    }
    queue_.reverseLast(queue_.size() - before);
}

/// Frees signals that a delayed sender meant for an earlier user of the slot, which has ended. Only after the whole
/// chain has its owners, since freeing a block overwrites its link.
void Inbox::freeStrays(Ref chain) {
    stack::walk(self_.arena(), chain, [&](BlockRef block) {
        if (block->owner.loadRelaxed() != heldBy(self_.spid)) return;
        self_.slot.dropped.add(1);
        signals_.discard(block);
    });
}

int Inbox::append(const BlockRef& block, Spid sender) {
    try {
        collect();
        queue_.reserve(1);
    } catch (const std::bad_alloc&) {
        return signals_.refuse(block, ENOMEM);
    }
    signals_.markQueued(block, sender);
    queue_.append({block.ref, block.sizeClass}, block->signal.number);
    return 0;
}

void Inbox::discardAll() {
    if (!collectIfRoom()) signals_.keep();  // makes end() scan the arena for what is in the mailbox
    const uint32_t any[] = {0};
    while (const BlockRef block = take(any)) signals_.discard(block);
    for (Ref ref; (ref = timeouts_.takeAny()) != Ref::none;) signals_.discard(ref);
}

/// Looks at the mailbox while the budget lasts. True when a signal came or a time-out fell due.
bool Inbox::spin(uint64_t deadline) {
    const uint64_t wake = std::min(deadline, timeouts_.earliest());
    if (budget_.nanoseconds() == 0) return yieldOnce(wake);
    const uint64_t start = now();
    uint64_t time = start;
    while (time < start + budget_.nanoseconds() && time < wake) {
        for (int i = 0; i < 32; ++i) {
            if (hasMail()) {
                budget_.foundWhileSpinning();
                return true;
            }
            relax();
        }
        // The peer may have been put on this very processor: then it runs now.
        if (time - start > alone) sched_yield();
        time = now();
    }
    if (timeouts_.earliest() > time) return false;
    fireTimeouts();
    return true;
}

/// Lets other processes run once, which may send, unless it is time to wake. True when a signal came.
bool Inbox::yieldOnce(uint64_t wake) {
    if (!budget_.mayYield()) return false;
    const uint64_t start = now();
    if (start >= wake) return false;
    sched_yield();
    const bool found = hasMail();
    budget_.yielded(now() - start, found);
    return found;
}

/// Sleeps until something happens, or only asks what has happened.
Inbox::Wait Inbox::sleep(uint64_t deadline, uint64_t latest, const uint32_t* selection) {
    const bool mayWait = deadline != 0;
    const bool sleeps = park() && mayWait;
    const uint64_t start = mayWait ? now() : 0;
    if (sleeps) {
        probes::sleep(self_.spid, lastOf(selection));
        self_.record.slept(start, selection);
    }
    // Also if a signal arrived just before the sleep: that may happen every time, and time-outs and ends must not
    // starve.
    handleEvents(sleeps ? millisecondsUntil(std::min(deadline, latest), start) : 0);
    const uint64_t end = mayWait ? now() : 0;
    if (sleeps) budget_.sleptFor(end - start);
    if (sleeps) self_.record.woke(end);
    if (waitFailed_ || !self_.isStillOpen()) return Wait::closed;
    markAwake();
    return !mayWait || end >= deadline ? Wait::deadline : Wait::event;
}

void Inbox::noticeEvents() {
    if (timeouts_.earliest() != Timers::never && timeouts_.earliest() <= now()) fireTimeouts();
    if (!peers_.supervising()) return;
    const uint64_t tick = coarseMilliseconds();
    if (tick != eventsSeenAt_) {
        eventsSeenAt_ = tick;
        handleEvents(0);
        // Some ends are reported by the doorbell alone. Set awake before draining: the wake state may say notified,
        // and the end of the receive then puts a byte back.
        markAwake();
        drainDoorbell();
    }
    if (peers_.hasEnded()) collect();
}

void Inbox::handleEvents(int milliseconds) {
    if (milliseconds != 0) self_.slot.sleeps.storeRelaxed(self_.slot.sleeps.loadRelaxed() + 1);
    constexpr int most = 16;
    epoll_event events[most];
    int count;
    do {
        count = epoll_wait(epoll_, events, most, milliseconds);
        waitFailed_ = count == -1 && errno != EINTR;
        milliseconds = 0;
        for (int i = 0; i < count; ++i) {
            const uint32_t tag = events[i].data.u32;
            if (tag == event_tag::doorbell) {
                byteIn_ = true;
            } else if (tag == event_tag::timer) {
                fireTimeouts();
            } else {
                peers_.check(SlotIndex{tag});
            }
        }
    } while (count == most);
    peers_.reapDead(DomainLock::Patience::tryOnce);  // all that this brought, together
}

void Inbox::fireTimeouts() {
    const uint64_t time = now();
    if (timeouts_.earliest() <= time) collect();  // what was sent before it fell due comes before
    timeouts_.fire(time, queue_);
}

/// Takes the bytes out.
void Inbox::drainDoorbell() {
    if (!byteIn_) return;
    uint32_t records[doorbell::capacity];
    uint32_t count;
    do {
        count = doorbell::drain(doorbell_.get(), records);
        byteIn_ = false;
        peers_.hear(records, count);
        if (count == doorbell::capacity) peers_.missRecords();  // it was full
    } while (count == doorbell::capacity);
    Pool& pool = signals_.pool();
    if (pool.isUnderPressure()) pool.yieldToPressure();  // a ring may also mean memory pressure
}

void Inbox::notifySelf() {
    const WakeWord before = self_.slot.wakeState.exchangeSeqCst(wake_state::word(self_.spid, wake_state::notified));
    awake_ = false;
    byteIn_ = byteIn_ || wake_state::stateOf(before) == wake_state::notified || doorbell::ring(doorbell_.get()) == 0;
    // Relaxed, unlike the store before a sleep [wake-up]: no look at the mailbox follows.
    if (!byteIn_) self_.slot.wakeState.storeRelaxed(wake_state::word(self_.spid, wake_state::parked));
}

void Inbox::makeReadinessTrue() {
    for (;;) {
        const bool mayLack = queue_.empty() || peers_.mayHaveLeftMail() || peers_.hasEnded();
        if ((mayLack && !collectIfRoom()) || !queue_.empty()) break;
        if (!awake_ && !byteIn_) return;
        // Drain before parking: a byte written by a sender that saw parked must stay.
        drainDoorbell();
        if (park() && !peers_.hasEnded()) return;
    }
    if (awake_ || !byteIn_) notifySelf();
}

}  // namespace linx
