#ifndef LINXIPC_HOST_ENDPOINT_INBOX_H
#define LINXIPC_HOST_ENDPOINT_INBOX_H

#include "host/endpoint/peers.h"
#include "host/endpoint/signal_queue.h"
#include "host/endpoint/signals.h"
#include "host/endpoint/spin_budget.h"
#include "host/endpoint/timeouts.h"

namespace linx {

/*
 * What has arrived at an endpoint, and waiting for more of it. Signals come from three places: the mailbox, where
 * others push them; peers that have ended, whose notices are delivered here; and time-outs that fall due. All go into
 * one queue, from which they are received.
 *
 * The descriptor, which is the epoll set, tells the truth because every operation that changes the queue ends with
 * makeReadinessTrue(): the doorbell holds a byte while the queue or the mailbox holds a signal, and none once both
 * are empty.
 *
 * If memory runs out, functions throw std::bad_alloc unless they say otherwise; what could not be taken stays there,
 * and the next call tries again. Belongs to the endpoint's thread.
 */
class Inbox {
public:
    /// Takes over the doorbell.
    Inbox(const Identity& self, Signals& signals, Peers& peers, int epoll, ScopedDescriptor& doorbell,
          const SpinBudget& budget);

    /// What ends a wait.
    enum class Wait {
        mail,      ///< something is there to be taken, or may be
        event,     ///< something else has happened
        deadline,  ///< it has passed
        closed     ///< there is nothing to wait for: the endpoint has been ended, or its descriptors closed
    };

    /// Begins to receive: from now on senders do not ring. Nothing has been taken yet.
    void markAwake();

    /// Moves new arrivals into the queue: the mailbox, then the notices of peers that ended before.
    void collect();

    /// The same. False when there was no memory for all of it.
    bool collectIfRoom();

    /// The oldest signal of the queue that the selection allows; no block when there is none.
    BlockRef take(const uint32_t* selection) {
        for (;;) {
            const SignalQueue::Signal signal = queue_.take(selection);
            if (signal.ref == Ref::none) return {};
            const BlockRef block = blockOf(signal);
            if (signals_.isQueued(block)) return block;
        }
    }

    /// Waits until the deadline (nanoseconds of the monotonic clock; Timers::never; 0: only asks what has happened).
    /// Before it sleeps, and when it knows all that its doorbell has told, it calls `beforeSleep()`, which returns
    /// the time at which it has to wake at the latest. What is waited for it only tells.
    template <class BeforeSleep>
    Wait wait(uint64_t deadline, const uint32_t* selection, BeforeSleep beforeSleep) {
        if (!self_.isStillOpen()) return Wait::closed;
        if (deadline != 0 && spin(deadline)) return Wait::mail;
        drainDoorbell();
        if (peers_.hasEnded()) return Wait::event;  // that came with the doorbell
        return sleep(deadline, beforeSleep(), selection);
    }

    /// Whether a busy endpoint, whose queue never runs dry, might miss something.
    bool mayMissEvents() const { return timeouts_.earliest() != Timers::never || peers_.supervising(); }

    /// Handles these: time-outs at once, ends of peers once per kernel tick.
    void noticeEvents();

    /// Whether a receive of any signal has nothing to do but to take an arrival, unless the end of a peer is due: no
    /// time-out can be, another signal stays in the queue, and the descriptor says so.
    bool isBusy() const { return queue_.hasSeveralArrivals() && timeouts_.idle() && byteIn_ && !awake_; }
    BlockRef takeArrival() { return blockOf(queue_.takeArrival()); }

    /// Puts a signal that was taken over into the queue, as from `sender`, behind all that has arrived before.
    /// Returns 0, or -1 with errno ENOMEM, the signal freed.
    int append(const BlockRef& block, Spid sender);

    Timeouts& timeouts() { return timeouts_; }

    /// Takes a time-out back and returns its block; none where there is no such.
    BlockRef cancelTimeout(LinxRef reference) { return timeouts_.cancel(reference, queue_); }

    /// Whether nothing waits in the queue.
    bool isEmpty() const { return queue_.empty(); }

    /// Whether the descriptor may disagree with the queue.
    bool isReadinessInDoubt() const { return queue_.empty() || awake_ || !byteIn_ || peers_.mayHaveLeftMail(); }
    void makeReadinessTrue();

    /// Puts a byte into the doorbell, if none is known to be in. A failure to do so is made good by the next update.
    void notifySelf();

    /// Discards all that has arrived, at the end of the endpoint.
    void discardAll();

    /// Closes this process's doorbell, which would hide the end of the endpoint from its holders.
    void closeDoorbell() { doorbell_.reset(); }

private:
    BlockRef blockOf(SignalQueue::Signal signal) const {
        return {self_.arena().rawBlock(signal.ref), signal.ref, signal.sizeClass};
    }
    void takeMailbox();
    void queueClaimed();
    void queueChain();
    void freeStrays(Ref chain);
    bool hasMail() const;
    bool spin(uint64_t deadline);
    bool yieldOnce(uint64_t wake);
    Wait sleep(uint64_t deadline, uint64_t latest, const uint32_t* selection);
    bool park();
    void drainDoorbell();
    void handleEvents(int milliseconds);
    void fireTimeouts();

    const Identity self_;
    Signals& signals_;
    Peers& peers_;
    const int epoll_;
    ScopedDescriptor doorbell_;
    SpinBudget budget_;
    SignalQueue queue_;
    Timeouts timeouts_;
    Ref claimedChain_ = Ref::none;  ///< taken from the mailbox, not in the queue yet
    bool hasStrays_ = false;        ///< it has blocks that were sent to an earlier user of the slot
    bool awake_ = false;            ///< the wake state has been set to awake
    bool byteIn_ = false;           ///< the doorbell is known to hold a byte
    bool waitFailed_ = false;       ///< somebody has closed what this endpoint waits on
    uint64_t eventsSeenAt_ = 0;
};

}  // namespace linx

#endif
