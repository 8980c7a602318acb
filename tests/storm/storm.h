#ifndef LINXIPC_TESTS_STORM_STORM_H
#define LINXIPC_TESTS_STORM_STORM_H

#include <array>
#include <memory>
#include <random>

#include "tests/kit/child.h"
#include "tests/traffic/ledger.h"
#include "tests/traffic/pulse.h"

namespace storm {

using traffic::Clock;
using traffic::Ledger;

constexpr uint32_t seats = 8;

/// Workers in processes of their own, one who looks on, and who kills, stops and replaces them all.
class Storm {
public:
    Storm(Ledger& ledger, uint32_t seed) : ledger_(ledger), random_(seed) {}

    /// Kills so many workers, each replaced at once; then lets all come to rest, looks through the arena, and lets
    /// them end. Stops early when somebody complains.
    void rage(uint32_t kills);

    uint32_t kills() const { return kills_; }
    uint32_t stops() const { return stops_; }
    uint32_t rests() const { return rests_; }
    uint32_t killedOnlookers() const { return killedOnlookers_; }
    Clock::duration longestStall() const { return longestStall_; }

private:
    struct Place {
        std::unique_ptr<Child> child;
        uint32_t process = 0;
        traffic::Pulse pulse;
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
    bool settle();
    void rest();
    void calm();
    void inspect();
    void replaceOnlooker();
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    Ledger& ledger_;
    std::mt19937 random_;
    std::array<Place, seats> places_;
    uint32_t processes_ = 0;
    uint32_t kills_ = 0;
    uint32_t stops_ = 0;
    uint32_t rests_ = 0;
    std::unique_ptr<Child> onlooker_;
    uint32_t killedOnlookers_ = 0;
    Clock::duration longestStall_{};
};

}  // namespace storm

#endif
