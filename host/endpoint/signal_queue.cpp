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
    assert(count <= arrivals_.size() - nextArrival_);
    std::reverse(arrivals_.end() - static_cast<std::ptrdiff_t>(count), arrivals_.end());
}

SignalQueue::Signal SignalQueue::takeSelected(const uint32_t* selection) {
    assert((size_ == 0) == (oldest_ == none && !hasArrivals()));
    if (size_ == 0) return {};
    if (oldest_ != none) {
        const Signal signal = takeFromNumberQueues(selection);
        if (signal.ref != Ref::none) return signal;
    }
    while (hasArrivals()) {
        if (!selects(selection, arrivals_[nextArrival_].number)) {
            appendToNumberQueue(arrivals_[nextArrival_]);
            popArrival();
            continue;
        }
        --size_;
        return popArrival().signal;
    }
    return {};
}

SignalQueue::Signal SignalQueue::takeFromNumberQueues(const uint32_t* selection) {
    if (selection[0] == 0) return unlink(numberQueues_.find(waiting_[oldest_].number), oldest_);
    auto first = numberQueues_.end();
    for (uint32_t i = 1; i <= selection[0]; ++i) {
        const auto numberQueue = numberQueues_.find(selection[i]);
        if (numberQueue == numberQueues_.end()) continue;
        if (first == numberQueues_.end() ||
            waiting_[numberQueue->second.oldest].order < waiting_[first->second.oldest].order) {
            first = numberQueue;
        }
    }
    return first == numberQueues_.end() ? Signal{} : unlink(first, first->second.oldest);
}

SignalQueue::Place SignalQueue::appendRemovable(Signal signal, uint32_t number) {
    while (hasArrivals()) {
        appendToNumberQueue(arrivals_[nextArrival_]);
        popArrival();
    }
    const Place place = appendToNumberQueue({signal, number});
    ++size_;
    return place;
}

bool SignalQueue::remove(Ref ref, Place place) {
    if (place >= waiting_.size() || waiting_[place].signal.ref != ref || ref == Ref::none) return false;
    unlink(numberQueues_.find(waiting_[place].number), place);
    return true;
}

/// A free entry of the number queues; the same one until it is put to use.
uint32_t SignalQueue::freeEntry() {
    if (freeEntry_ != none) return freeEntry_;
    waiting_.push_back({});
    freeEntry_ = static_cast<uint32_t>(waiting_.size() - 1);
    waiting_[freeEntry_].nextOfNumber = none;
    return freeEntry_;
}

/// Behind all others. Out of memory, the number queues are as before.
uint32_t SignalQueue::appendToNumberQueue(const Arrival& arrival) {
    const uint32_t index = freeEntry();
    NumberQueue& numberQueue = numberQueues_.insert({arrival.number, {none, none}}).first->second;
    freeEntry_ = waiting_[index].nextOfNumber;
    waiting_[index] = {arrival.signal, arrival.number, arrived_++, newest_, none, numberQueue.newest, none};
    (newest_ == none ? oldest_ : waiting_[newest_].newer) = index;
    newest_ = index;
    (numberQueue.newest == none ? numberQueue.oldest : waiting_[numberQueue.newest].nextOfNumber) = index;
    numberQueue.newest = index;
    return index;
}

SignalQueue::Signal SignalQueue::unlink(std::unordered_map<uint32_t, NumberQueue>::iterator numberQueue,
                                        uint32_t index) {
    Waiting& entry = waiting_[index];
    const Signal signal = entry.signal;
    assert(signal.ref != Ref::none && numberQueue != numberQueues_.end() && numberQueue->first == entry.number);
    (entry.older == none ? oldest_ : waiting_[entry.older].newer) = entry.newer;
    (entry.newer == none ? newest_ : waiting_[entry.newer].older) = entry.older;
    (entry.previousOfNumber == none ? numberQueue->second.oldest : waiting_[entry.previousOfNumber].nextOfNumber) =
        entry.nextOfNumber;
    (entry.nextOfNumber == none ? numberQueue->second.newest : waiting_[entry.nextOfNumber].previousOfNumber) =
        entry.previousOfNumber;
    if (numberQueue->second.oldest == none) numberQueues_.erase(numberQueue);
    entry.signal.ref = Ref::none;
    entry.nextOfNumber = freeEntry_;
    freeEntry_ = index;
    --size_;
    return signal;
}

}  // namespace linx
