#include "host/endpoint/signal_queue.h"

#include <algorithm>

namespace linx {
namespace {

bool selects(const uint32_t* selection, uint32_t number) {
    const uint32_t count = selection[0];
    return count == 0 || std::find(selection + 1, selection + 1 + count, number) != selection + 1 + count;
}

}  // namespace

void SignalQueue::reserve(size_t count) {
    // What has been taken is dropped once it is the larger part, so that a queue that never empties stays small.
    if (nextArrival_ > arrivals_.size() / 2) {
        arrivals_.erase(arrivals_.begin(), arrivals_.begin() + static_cast<std::ptrdiff_t>(nextArrival_));
        nextArrival_ = 0;
    }
    const size_t need = arrivals_.size() + count;
    if (need > arrivals_.capacity()) arrivals_.reserve(std::max(need, 2 * arrivals_.capacity()));
}

void SignalQueue::reverseLast(size_t count) {
    std::reverse(arrivals_.end() - static_cast<std::ptrdiff_t>(count), arrivals_.end());
}

SignalQueue::Signal SignalQueue::takeSelected(const uint32_t* selection) {
    if (size_ == 0) return {0, 0};
    if (oldest_ != none) {
        const Signal signal = takeFromLanes(selection);
        if (signal.ref != 0) return signal;
    }
    while (hasArrivals()) {
        if (!selects(selection, arrivals_[nextArrival_].number)) {
            moveToLane(arrivals_[nextArrival_]);
            popArrival();
            continue;
        }
        --size_;
        return popArrival().signal;
    }
    return {0, 0};
}

SignalQueue::Signal SignalQueue::takeFromLanes(const uint32_t* selection) {
    if (selection[0] == 0) return unlinkOldestOf(lanes_.find(waiting_[oldest_].number));
    auto first = lanes_.end();
    for (uint32_t i = 1; i <= selection[0]; ++i) {
        const auto lane = lanes_.find(selection[i]);
        if (lane == lanes_.end()) continue;
        if (first == lanes_.end() || waiting_[lane->second.oldest].order < waiting_[first->second.oldest].order) {
            first = lane;
        }
    }
    return first == lanes_.end() ? Signal{0, 0} : unlinkOldestOf(first);
}

void SignalQueue::moveToLane(const Arrival& arrival) {
    uint32_t index = freeEntry_;
    if (index == none) {
        waiting_.push_back({});
        index = static_cast<uint32_t>(waiting_.size() - 1);
        waiting_[index].nextInLane = none;
        freeEntry_ = index;
    }
    const auto lane = lanes_.insert({arrival.number, {none, none}}).first;
    freeEntry_ = waiting_[index].nextInLane;
    waiting_[index] = {arrival.signal, arrival.number, arrived_++, newest_, none, none};
    (newest_ == none ? oldest_ : waiting_[newest_].newer) = index;
    newest_ = index;
    (lane->second.newest == none ? lane->second.oldest : waiting_[lane->second.newest].nextInLane) = index;
    lane->second.newest = index;
}

SignalQueue::Signal SignalQueue::unlinkOldestOf(std::unordered_map<uint32_t, Lane>::iterator lane) {
    const uint32_t index = lane->second.oldest;
    lane->second.oldest = waiting_[index].nextInLane;
    if (lane->second.oldest == none) lanes_.erase(lane);
    return release(index);
}

SignalQueue::Signal SignalQueue::release(uint32_t index) {
    const Waiting& entry = waiting_[index];
    (entry.older == none ? oldest_ : waiting_[entry.older].newer) = entry.newer;
    (entry.newer == none ? newest_ : waiting_[entry.newer].older) = entry.older;
    waiting_[index].nextInLane = freeEntry_;
    freeEntry_ = index;
    --size_;
    return waiting_[index].signal;
}

bool SignalQueue::remove(Ref ref, uint32_t number) {
    const auto arrival =
        std::find_if(arrivals_.begin() + static_cast<std::ptrdiff_t>(nextArrival_), arrivals_.end(),
                     [&](const Arrival& one) { return one.signal.ref == ref && one.number == number; });
    if (arrival != arrivals_.end()) {
        arrivals_.erase(arrival);
        --size_;
        return true;
    }
    const auto lane = lanes_.find(number);
    if (lane == lanes_.end()) return false;
    uint32_t before = none;
    for (uint32_t index = lane->second.oldest; index != none; before = index, index = waiting_[index].nextInLane) {
        if (waiting_[index].signal.ref != ref) continue;
        if (before == none) {
            unlinkOldestOf(lane);
            return true;
        }
        waiting_[before].nextInLane = waiting_[index].nextInLane;
        if (lane->second.newest == index) lane->second.newest = before;
        release(index);
        return true;
    }
    return false;
}

}  // namespace linx
