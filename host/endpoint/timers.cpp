#include "host/endpoint/timers.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <new>

namespace linx {

int Timers::open() {
    if (descriptor_.get() == -1) descriptor_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    return descriptor_.get();
}

void Timers::add(LinxRef reference, uint64_t deadline, Ref signal) {
    const auto place = waiting_.insert({deadline, {reference, signal}});
    try {
        byReference_.insert({reference, place});
    } catch (const std::bad_alloc&) {
        waiting_.erase(place);
        throw;
    }
    arm();
}

Ref Timers::fire(uint64_t now) {
    if (earliest() > now) return 0;
    const auto first = waiting_.begin();
    const Timeout due = first->second;
    fired_.insert({due.signal, due.reference});
    byReference_.erase(due.reference);
    waiting_.erase(first);
    return due.signal;
}

void Timers::forget(Ref signal) {
    fired_.erase(signal);
}

bool Timers::knows(LinxRef reference) const {
    return byReference_.count(reference) != 0 ||
           std::any_of(fired_.begin(), fired_.end(), [&](const auto& entry) { return entry.second == reference; });
}

Ref Timers::cancel(LinxRef reference, bool& hadFired) {
    const auto found = byReference_.find(reference);
    hadFired = found == byReference_.end();
    if (!hadFired) {
        const Ref signal = found->second->second.signal;
        waiting_.erase(found->second);
        byReference_.erase(found);
        arm();
        return signal;
    }
    const auto fired =
        std::find_if(fired_.begin(), fired_.end(), [&](const auto& entry) { return entry.second == reference; });
    if (fired == fired_.end()) return 0;
    const Ref signal = fired->first;
    fired_.erase(fired);
    return signal;
}

Ref Timers::takeAny() {
    if (waiting_.empty()) return 0;
    const Ref signal = waiting_.begin()->second.signal;
    byReference_.erase(waiting_.begin()->second.reference);
    waiting_.erase(waiting_.begin());
    return signal;
}

void Timers::arm() {
    if (earliest() == armedFor_ || descriptor_.get() == -1) return;
    armedFor_ = earliest();
    itimerspec when = {};
    if (armedFor_ != never) {
        // A deadline of 0 would disarm.
        const uint64_t deadline = std::max<uint64_t>(armedFor_, 1);
        when.it_value.tv_sec = static_cast<time_t>(deadline / 1000000000u);
        when.it_value.tv_nsec = static_cast<long>(deadline % 1000000000u);
    }
    timerfd_settime(descriptor_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

}  // namespace linx
