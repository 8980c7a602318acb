#ifndef LINXIPC_TESTS_TRAFFIC_PULSE_H
#define LINXIPC_TESTS_TRAFFIC_PULSE_H

#include <chrono>
#include <cstdint>

namespace traffic {

using Clock = std::chrono::steady_clock;

/// How long anybody may be without progress.
constexpr std::chrono::seconds longestPatience(5);

/// Watches a count that somebody raises while he makes progress.
class Pulse {
public:
    /// Begins anew: after a start, or when the watched goes on after a stop.
    void restart(Clock::time_point now) { beatAt_ = now; }

    /// Looks. Returns how long there has been no progress.
    Clock::duration look(uint32_t beats, Clock::time_point now);

    /// Whether at the last look there had been none for too long.
    bool hasStopped() const { return hasStopped_; }

private:
    uint32_t beats_ = 0;
    Clock::time_point beatAt_ = Clock::now();
    bool hasStopped_ = false;
};

}  // namespace traffic

#endif
