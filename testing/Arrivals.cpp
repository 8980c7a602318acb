#include "testing/Arrivals.h"

#include <algorithm>
#include <utility>

namespace linx::testing {

namespace {

using std::chrono::milliseconds;

bool isFor(const Signal& signal, const LINX* receiver) {
    return signal.receiver == nullptr || signal.receiver == receiver;
}

bool selects(const std::uint32_t* selection, std::uint32_t number) {
    const std::uint32_t* const numbers = selection + 1;
    return selection[0] == 0 || std::find(numbers, numbers + selection[0], number) != numbers + selection[0];
}

}  // namespace

void Arrivals::addAfter(milliseconds delay, Signal& signal, LinxRef reference) {
    const milliseconds time = now_ + delay;
    const auto later = [time](const Due& due) { return due.time > time; };
    due_.insert(std::find_if(due_.begin(), due_.end(), later), {time, &signal, reference});
    advance(milliseconds(0));
}

Signal* Arrivals::cancel(LinxRef reference) {
    const auto isIt = [reference](const Due& due) { return reference != 0 && due.reference == reference; };
    for (std::list<Due>* list : {&due_, &timedOut_}) {
        const auto found = std::find_if(list->begin(), list->end(), isIt);
        if (found == list->end()) continue;
        Signal* const signal = found->signal;
        list->erase(found);
        queue_.erase(std::remove(queue_.begin(), queue_.end(), signal), queue_.end());
        return signal;
    }
    return nullptr;
}

Signal* Arrivals::take(const LINX* receiver, const std::uint32_t* selection) {
    const auto fits = [=](const Signal* signal) {
        return isFor(*signal, receiver) && selects(selection, signal->head()->number);
    };
    const auto found = std::find_if(queue_.begin(), queue_.end(), fits);
    if (found == queue_.end()) return nullptr;
    Signal* const signal = *found;
    queue_.erase(found);
    timedOut_.remove_if([signal](const Due& due) { return due.signal == signal; });
    return signal;
}

Signal* Arrivals::await(const LINX* receiver, const std::uint32_t* selection, milliseconds limit) {
    const milliseconds end = now_ + limit;
    do {
        if (Signal* const signal = take(receiver, selection)) return signal;
    } while (nextArrives(end));
    now_ = end;
    return nullptr;
}

void Arrivals::advance(milliseconds time) {
    const milliseconds end = now_ + time;
    while (nextArrives(end)) continue;
    now_ = end;
}

bool Arrivals::hasAny(const LINX* receiver) const {
    return std::any_of(queue_.begin(), queue_.end(), [=](const Signal* signal) { return isFor(*signal, receiver); });
}

std::vector<Signal*> Arrivals::takeAll() {
    std::vector<Signal*> all(queue_.begin(), queue_.end());
    for (const Due& due : due_) all.push_back(due.signal);
    queue_.clear();
    due_.clear();
    timedOut_.clear();
    return all;
}

/// Turns the clock to when the next is due and has it arrive, if that is so soon.
bool Arrivals::nextArrives(milliseconds until) {
    if (due_.empty() || due_.front().time > until) return false;
    now_ = due_.front().time;
    add(*due_.front().signal);
    if (due_.front().reference != 0) {
        timedOut_.splice(timedOut_.end(), due_, due_.begin());
    } else {
        due_.pop_front();
    }
    return true;
}

}  // namespace linx::testing
