#ifndef LINXIPC_TESTS_SOAK_SOAK_H
#define LINXIPC_TESTS_SOAK_SOAK_H

#include <array>
#include <functional>
#include <memory>
#include <random>

#include "tests/kit/child.h"
#include "tests/soak/report.h"
#include "tests/traffic/pulse.h"

namespace soak {

using traffic::Clock;

/// Residents that live on, others that come and go, and who ends and replaces these and has all of them counted.
class Soak {
public:
    Soak(Board& board, const std::string& directory, uint32_t seed);

    /// Runs for so long, and has everything counted each time the interval has passed, and in the end. Stops early
    /// when somebody complains.
    void run(Clock::duration time, Clock::duration interval);

    const std::vector<Sample>& samples() const { return samples_; }
    uint32_t kills() const { return kills_; }
    uint32_t ends() const { return ends_; }
    Clock::duration longestStall() const { return longestStall_; }
    std::vector<std::string> complaints() const;

private:
    struct Place {
        Ledger* ledger;
        uint32_t seat;
        bool isResident;
        std::unique_ptr<Child> child;
        uint32_t process = 0;
        traffic::Pulse pulse;
    };

    void start();
    void spawn(Place& place);
    void work(const Place& place, Line& parent, uint32_t seed);
    void strike();
    void kill(Place& place);
    void retire(Place& place);
    bool claimAbsence(const Place& place);
    void haveCounted();
    void settle();
    void resume();
    void spawnOthers();
    void end();

    bool isFine() const;
    bool isMember(const Place& place) const { return place.ledger == &board_.members; }
    bool await(const std::string& what, const std::function<bool()>& condition);
    void watch(Clock::duration time);
    void expectEnd(Place& place);
    void complain(const std::string& text) { board_.members.complain(text); }
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    Board& board_;
    const std::string directory_;
    std::mt19937 random_;
    std::array<Place, workers + members> places_;
    std::vector<Sample> samples_;
    const Clock::time_point began_ = Clock::now();
    uint32_t processes_ = 0;
    uint32_t kills_ = 0;
    uint32_t ends_ = 0;
    Clock::duration longestStall_{};
};

}  // namespace soak

#endif
