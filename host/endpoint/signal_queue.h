#ifndef LINXIPC_HOST_ENDPOINT_SIGNAL_QUEUE_H
#define LINXIPC_HOST_ENDPOINT_SIGNAL_QUEUE_H

#include <unordered_map>
#include <vector>

#include "host/arena/layout.h"

namespace linx {

/*
 * The signals that an endpoint has taken from its mailbox and not handed out yet, in order of arrival. Lives in
 * private memory: nobody else can garble it.
 *
 * Arrivals wait in a plain list, which is all that a receive of any signal ever uses. A receive that awaits certain
 * numbers moves what it passes over into lanes, one for each number, so that it never passes over a signal twice:
 * awaiting a number costs the same however many others wait. All signals in lanes are older than all arrivals.
 */
class SignalQueue {
public:
    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }

    /// Makes room for `count` more, so that appending them cannot fail.
    void reserve(size_t count);

    /// Out of memory, the queue is as before.
    void append(Ref ref, uint32_t number) {
        if (arrivals_.size() == arrivals_.capacity()) reserve(1);
        arrivals_.push_back({ref, number});
        ++size_;
    }

    /// Takes back the last `count` that were appended, since when nothing was taken.
    void dropLast(size_t count) {
        arrivals_.resize(arrivals_.size() - count);
        size_ -= count;
    }

    /// Turns the last `count` signals round: a mailbox gives its newest first.
    void reverseLast(size_t count);

    /// Takes the oldest signal that `selection` (a count, then that many numbers; 0 for any) allows; 0 when none is.
    Ref take(const uint32_t* selection) {
        if (selection[0] != 0 || oldest_ != none) return takeSelected(selection);
        if (!hasArrivals()) return 0;
        --size_;
        return popArrival().ref;
    }

    /// Takes the given signal out. False when it is not there.
    bool remove(Ref ref, uint32_t number);

private:
    struct Arrival {
        Ref ref;
        uint32_t number;
    };
    struct Waiting {
        Ref ref;
        uint32_t number;
        uint64_t order;
        uint32_t older;  ///< neighbours among all signals in lanes
        uint32_t newer;
        uint32_t nextInLane;
    };
    struct Lane {
        uint32_t oldest;
        uint32_t newest;
    };
    static constexpr uint32_t none = ~0u;

    bool hasArrivals() const { return nextArrival_ != arrivals_.size(); }
    Arrival popArrival() {
        const Arrival arrival = arrivals_[nextArrival_++];
        if (!hasArrivals()) {
            arrivals_.clear();
            nextArrival_ = 0;
        }
        return arrival;
    }
    Ref takeSelected(const uint32_t* selection);
    Ref takeFromLanes(const uint32_t* selection);
    void moveToLane(const Arrival& arrival);
    Ref unlinkOldestOf(std::unordered_map<uint32_t, Lane>::iterator lane);
    Ref release(uint32_t index);

    size_t size_ = 0;
    std::vector<Arrival> arrivals_;
    size_t nextArrival_ = 0;

    std::vector<Waiting> waiting_;  ///< entries of the lanes, linked by index
    uint32_t freeEntry_ = none;
    uint32_t oldest_ = none;
    uint32_t newest_ = none;
    uint64_t arrived_ = 0;
    std::unordered_map<uint32_t, Lane> lanes_;
};

}  // namespace linx

#endif
