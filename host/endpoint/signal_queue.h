#ifndef LINXIPC_HOST_ENDPOINT_SIGNAL_QUEUE_H
#define LINXIPC_HOST_ENDPOINT_SIGNAL_QUEUE_H

#include <cassert>
#include <unordered_map>
#include <vector>

#include "host/arena/layout.h"

namespace linx {

/*
 * The signals that an endpoint has taken from its mailbox and not handed out yet, in order of arrival. Lives in
 * private memory: nobody else can garble it.
 *
 * Arrivals wait in a plain list, which suffices while every receive takes any signal. A receive that awaits certain
 * numbers moves the signals it skips into queues, one per number, so that none is skipped twice: awaiting a number
 * costs the same however many others wait. Signals in those are older than all arrivals. A signal that may be removed
 * before its turn goes into one at once and keeps its place there: that costs the same, too, wherever it is.
 *
 *                            oldest_                         newest_
 *   waiting_, by age           a(5) <-> b(7) <-> c(5) <-> d(5)
 *   of number 5                a    <----------> c    <-> d          numberQueues_[5]: oldest a, newest d
 *   of number 7                         b                            numberQueues_[7]: oldest b, newest b
 *   out of use                 x -> y                                freeEntry_, linked through nextOfNumber
 *
 *   arrivals_                  taken taken | e f g                   nextArrival_ is where e stands
 *
 * A receive of any signal takes a, and e when there is no a; one that awaits 7 takes b, and where there was no b it
 * would move e, f and g into number queues until it came to a 7.
 */
class SignalQueue {
public:
    struct Signal {
        Ref ref = Ref::none;
        SizeClassId sizeClass{};
    };

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }

    /// Makes room for `count` more, so that appending them cannot fail.
    void reserve(size_t count);

    /// Out of memory, the queue is as before.
    void append(Signal signal, uint32_t number) {
        if (arrivals_.size() == arrivals_.capacity()) reserve(1);
        arrivals_.emplace_back(signal, number);
        ++size_;
    }

    /// Where a signal waits that may be taken out.
    using Place = uint32_t;

    /// Appends a signal that may be taken out, and tells its place. Out of memory, the queue holds what it held.
    Place appendRemovable(Signal signal, uint32_t number);

    /// Takes the signal out of its place. False when it is not there any more.
    bool remove(Ref ref, Place place);

    /// Takes back the last `count` that were appended, since when nothing was taken.
    void dropLast(size_t count) {
        assert(count <= arrivals_.size() - nextArrival_);
        arrivals_.erase(arrivals_.end() - static_cast<std::ptrdiff_t>(count), arrivals_.end());
        size_ -= count;
    }

    /// Turns the last `count` signals round: a mailbox gives its newest first.
    void reverseLast(size_t count);

    /// Whether a receive of any signal has only to take an arrival, and leaves another.
    bool hasSeveralArrivals() const { return size_ > 1 && oldest_ == none; }

    /// Takes the oldest of several arrivals.
    Signal takeArrival() {
        assert(hasArrivals() && size_ != 0);
        --size_;
        return arrivals_[nextArrival_++].signal;
    }

    /// Takes the oldest signal that `selection` (a count, then that many numbers; 0 for any) allows; none when none
    /// is.
    Signal take(const uint32_t* selection) {
        if (selection[0] != 0 || oldest_ != none) return takeSelected(selection);
        if (size_ == 0) return {};
        const Signal oldest = takeArrival();
        if (size_ == 0) forgetArrivals();
        return oldest;
    }

private:
    struct Arrival {
        Arrival(Signal itsSignal, uint32_t itsNumber) : signal(itsSignal), number(itsNumber) {}
        Signal signal;
        uint32_t number;
    };
    struct Waiting {
        Signal signal;
        uint32_t number;
        uint64_t order;
        uint32_t older;  ///< neighbours among all signals in number queues
        uint32_t newer;
        uint32_t previousOfNumber;
        uint32_t nextOfNumber;
    };
    struct NumberQueue {
        uint32_t oldest;
        uint32_t newest;
    };
    static constexpr uint32_t none = ~0u;

    bool hasArrivals() const { return nextArrival_ != arrivals_.size(); }
    Arrival popArrival() {
        const Arrival arrival = arrivals_[nextArrival_++];
        if (!hasArrivals()) forgetArrivals();
        return arrival;
    }
    void forgetArrivals() {
        arrivals_.clear();
        nextArrival_ = 0;
    }
    Signal takeSelected(const uint32_t* selection);
    Signal takeFromNumberQueues(const uint32_t* selection);
    uint32_t freeEntry();
    uint32_t appendToNumberQueue(const Arrival& arrival);
    Signal unlink(std::unordered_map<uint32_t, NumberQueue>::iterator numberQueue, uint32_t index);

    size_t size_ = 0;
    std::vector<Arrival> arrivals_;
    size_t nextArrival_ = 0;

    std::vector<Waiting> waiting_;  ///< entries of the number queues, linked by index
    uint32_t freeEntry_ = none;
    uint32_t oldest_ = none;
    uint32_t newest_ = none;
    uint64_t arrived_ = 0;
    std::unordered_map<uint32_t, NumberQueue> numberQueues_;
};

}  // namespace linx

#endif
