#ifndef LINXIPC_TESTS_STORM_STORM_H
#define LINXIPC_TESTS_STORM_STORM_H

#include <array>
#include <chrono>
#include <memory>
#include <random>

#include "tests/processes/support/child.h"
#include "tests/storm/ledger.h"

namespace storm {

using Clock = std::chrono::steady_clock;

/// Workers in processes of their own, and who kills, stops and replaces them.
class Storm {
public:
    Storm(Ledger& ledger, uint32_t seed) : ledger_(ledger), random_(seed) {}

    /// Kills so many workers, each replaced at once; then lets all come to rest and end. Stops early when somebody
    /// complains.
    void rage(uint32_t kills);

    uint32_t kills() const { return kills_; }
    uint32_t stops() const { return stops_; }
    Clock::duration longestStall() const { return longestStall_; }

private:
    struct Place {
        std::unique_ptr<Child> child;
        uint32_t process = 0;
        uint32_t beats = 0;
        Clock::time_point beatAt;  ///< of the last progress, or of the last start or continuation
        bool stopped = false;
        Clock::time_point stoppedUntil;
    };

    void spawn(uint32_t worker);
    void strike(uint32_t worker);
    void kill(uint32_t worker);
    void stop(uint32_t worker);
    void cont(Place& place);
    void watch(Clock::duration time);
    void lookAt(uint32_t worker, Clock::time_point now);
    void calm();
    bool allSettled() const;
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    Ledger& ledger_;
    std::mt19937 random_;
    std::array<Place, workerCount> places_;
    uint32_t processes_ = 0;
    uint32_t kills_ = 0;
    uint32_t stops_ = 0;
    Clock::duration longestStall_{};
};

}  // namespace storm

#endif
