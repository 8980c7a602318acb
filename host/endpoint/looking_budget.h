#ifndef LINXIPC_HOST_ENDPOINT_LOOKING_BUDGET_H
#define LINXIPC_HOST_ENDPOINT_LOOKING_BUDGET_H

#include <cstdint>

namespace linx {

/// How long a receive looks at the mailbox before it sleeps, in nanoseconds. Sleeping and being woken cost tens of
/// microseconds, so looking pays where answers come sooner than that; where they do not it only burns a processor.
/// The budget follows what was seen: it grows when looking found something or when a sleep turned out short, and
/// halves when it was spent for nothing.
class LookingBudget {
public:
    /// At most $LINX_SPIN_US microseconds, 50 by default; none where the process may run on one processor only.
    static LookingBudget fromEnvironment();

    explicit LookingBudget(uint64_t most) : most_(most), budget_(most / 2) {}

    uint64_t nanoseconds() const { return budget_; }

    void foundWhileLooking() { grow(); }
    void sleptFor(uint64_t nanoseconds) {
        if (nanoseconds < most_) {
            grow();
        } else {
            budget_ = budget_ < smallest ? 0 : budget_ / 2;
        }
    }

private:
    static constexpr uint64_t smallest = 1000;

    void grow() {
        budget_ = budget_ * 2 + smallest;
        if (budget_ > most_) budget_ = most_;
    }

    uint64_t most_;
    uint64_t budget_;
};

}  // namespace linx

#endif
