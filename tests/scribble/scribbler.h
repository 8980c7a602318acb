#ifndef LINXIPC_TESTS_SCRIBBLE_SCRIBBLER_H
#define LINXIPC_TESTS_SCRIBBLE_SCRIBBLER_H

#include <array>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/kit/child.h"
#include "tests/kit/domain.h"
#include "tests/kit/garbler.h"
#include "tests/kit/shared.h"
#include "tests/scribble/ledger.h"

namespace scribble {

/// Scribbles over the arena of workers at their work, and watches whether all of them go on. After some rounds the
/// domain is removed beneath them, and new workers meet in one that is made in its place.
class Scribbler {
public:
    explicit Scribbler(uint32_t seed) : seed_(seed) {}

    /// Scribbles in the rounds `first` to `first + count - 1`. Stops at the first complaint.
    void scribble(uint32_t first, uint32_t count);

    const std::vector<std::string>& complaints() const { return complaints_; }
    uint64_t bytesIn(linxtest::Region region) const { return bytes_[static_cast<uint32_t>(region)]; }
    uint32_t rounds() const { return rounds_; }
    uint32_t crashes() const { return crashes_; }
    uint32_t hangs() const { return hangs_; }
    uint32_t domains() const { return domains_; }
    const Ledger& ledger() const { return *ledger_; }

private:
    using Clock = std::chrono::steady_clock;

    void scribbleDomain(uint32_t domain, uint32_t firstRound, uint32_t endRound);
    bool startWorkers(const std::string& where);
    void scribbleRounds(uint32_t firstRound, uint32_t endRound);
    void garble(char* base, uint32_t pageCount, linxtest::Region region);
    bool awaitBeats(const std::string& where);
    void endWorkers(const std::string& where);
    bool hasEnded(uint32_t worker) const;
    void complainOfEnd(uint32_t worker, const std::string& where);
    void complainOfHang(uint32_t worker, const std::string& where);
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    /// Waits until `isDone(worker)` of each worker in turn. Complains of one that ends or takes too long, and is
    /// false then.
    template <class IsDone>
    bool await(const std::string& where, IsDone isDone);

    const uint32_t seed_;
    std::mt19937 random_;
    const linxtest::TestDomain domain_;
    const Shared<Ledger> ledger_;
    std::array<std::unique_ptr<Child>, processCount> workers_;  ///< and the onlooker
    std::array<uint64_t, linxtest::regionCount> bytes_{};
    std::vector<std::string> complaints_;
    uint32_t rounds_ = 0;
    uint32_t crashes_ = 0;
    uint32_t hangs_ = 0;
    uint32_t domains_ = 0;
};

}  // namespace scribble

#endif
