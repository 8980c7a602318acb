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
    const auto waiting = waiting_.insert({deadline, reference});
    try {
        bySignal_[signal] = reference;
        all_.insert({reference, {signal, false, 0, waiting}});
    } catch (const std::bad_alloc&) {
        bySignal_.erase(signal);
        waiting_.erase(waiting);
        throw;
    }
    arm();
}

void Timers::fire(Place place) {
    Timeout& first = all_.at(waiting_.begin()->second);
    first.hasFired = true;
    first.place = place;
    waiting_.erase(first.waiting);
}

void Timers::forget(Ref signal) {
    const auto reference = bySignal_.find(signal);
    if (reference == bySignal_.end()) return;
    const auto timeout = all_.find(reference->second);
    if (timeout->second.hasFired) erase(timeout);
}

Timers::Cancelled Timers::cancel(LinxRef reference) {
    const auto found = all_.find(reference);
    if (found == all_.end()) return {Ref::none, false, 0};
    const Timeout timeout = found->second;
    erase(found);
    if (!timeout.hasFired) arm();
    return {timeout.signal, timeout.hasFired, timeout.place};
}

void Timers::erase(All::iterator timeout) {
    if (!timeout->second.hasFired) waiting_.erase(timeout->second.waiting);
    bySignal_.erase(timeout->second.signal);
    all_.erase(timeout);
}

Ref Timers::takeAny() {
    if (waiting_.empty()) return Ref::none;
    const auto first = all_.find(waiting_.begin()->second);
    const Ref signal = first->second.signal;
    erase(first);
    return signal;
}

void Timers::callAt(uint64_t time) {
    call_ = std::min(call_, time);
    arm();
}

void Timers::arm() {
    const uint64_t next = std::min(earliest(), call_);
    if (next == armedFor_ || descriptor_.get() == -1) return;
    armedFor_ = next;
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
