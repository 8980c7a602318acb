#ifndef LINXIPC_HOST_ENDPOINT_SPIN_BUDGET_H
#define LINXIPC_HOST_ENDPOINT_SPIN_BUDGET_H

#include <cstdint>

namespace linx {

/// How long a receive spins on the mailbox before it sleeps, in nanoseconds. Sleeping and being woken cost tens of
/// microseconds, so spinning pays where answers come sooner than that; where they do not it only burns a processor.
/// The budget follows what was seen: it grows when spinning found something or when a sleep turned out short, and
/// halves when it was spent for nothing.
///
/// Where there is no budget a receive may still yield once before it sleeps: whoever shares its processor then
/// runs at once, and if that brings the signal, neither a doorbell nor a sleep is needed. It is tried less and less
/// often while it does not pay.
class SpinBudget {
public:
    /// At most $LINX_SPIN_US microseconds, 50 by default; none where the process may run on one processor only.
    static SpinBudget fromEnvironment();

    explicit SpinBudget(uint64_t most) : SpinBudget(most, most) {}
    /// `patience` is how long a yield may take and still count as having paid; 0: it is not tried.
    SpinBudget(uint64_t most, uint64_t patience) : most_(most), patience_(patience), budget_(most / 2) {}

    uint64_t nanoseconds() const { return budget_; }

    void foundWhileSpinning() { grow(); }
    void sleptFor(uint64_t nanoseconds) {
        if (nanoseconds < most_) {
            grow();
        } else {
            budget_ = budget_ < smallest ? 0 : budget_ / 2;
        }
    }

    /// Whether to yield now, and what came of it.
    bool mayYield() {
        if (yieldsToSkip_ == 0) return patience_ != 0;
        --yieldsToSkip_;
        return false;
    }
    void yielded(uint64_t nanoseconds, bool found) {
        const bool paid = found && nanoseconds < patience_;
        backoff_ = paid ? 0 : backoff_ < longestBackoff ? 2 * backoff_ + 1 : longestBackoff;
        yieldsToSkip_ = backoff_;
    }

private:
    static constexpr uint64_t smallest = 1000;
    static constexpr uint32_t longestBackoff = 63;

    void grow() {
        budget_ = budget_ * 2 + smallest;
        if (budget_ > most_) budget_ = most_;
    }

    uint64_t most_;
    uint64_t patience_;
    uint64_t budget_;
    uint32_t backoff_ = 0;
    uint32_t yieldsToSkip_ = 0;
};

}  // namespace linx

#endif
