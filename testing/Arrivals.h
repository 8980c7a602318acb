#ifndef LINXIPC_TESTING_ARRIVALS_H
#define LINXIPC_TESTING_ARRIVALS_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <list>
#include <vector>

#include "testing/Signals.h"

namespace linx::testing {

/// What arrives at the program, in which order and when; and the clock, which tells when it is time.
class Arrivals {
public:
    std::chrono::milliseconds now() const { return now_; }

    /// The signal arrives now.
    void add(Signal& signal) { queue_.push_back(&signal); }

    /// It arrives after `delay`, unless the time-out of that reference is cancelled before; 0 is that of none.
    void addAfter(std::chrono::milliseconds delay, Signal& signal, LinxRef reference = 0);

    /// Takes back the signal of a time-out, arrived or not; null when there is none.
    Signal* cancel(LinxRef reference);

    /// Takes out the first that has arrived for `receiver` and is selected; null when there is none.
    Signal* take(const LINX* receiver, const std::uint32_t* selection);

    /// The same; what is due meanwhile arrives, and where nothing is selected the time passes.
    Signal* await(const LINX* receiver, const std::uint32_t* selection, std::chrono::milliseconds limit);

    void advance(std::chrono::milliseconds time);

    /// Whether anything has arrived for `receiver`.
    bool hasAny(const LINX* receiver) const;

    /// Takes out everything, arrived or not.
    std::vector<Signal*> takeAll();

private:
    struct Due {
        std::chrono::milliseconds time;
        Signal* signal;
        LinxRef reference;
    };

    bool nextArrives(std::chrono::milliseconds until);

    std::chrono::milliseconds now_{0};
    std::deque<Signal*> queue_;
    std::list<Due> due_;       // in the order of their times
    std::list<Due> timedOut_;  // time-outs that are in the queue
};

}  // namespace linx::testing

#endif
