#ifndef LINXIPC_HOST_ARENA_THROTTLE_H
#define LINXIPC_HOST_ARENA_THROTTLE_H

#include <algorithm>

#include "host/arena/layout.h"
#include "host/system/clock.h"

namespace linx {

inline uint32_t milliseconds() {
    return static_cast<uint32_t>(now() / 1000000u);
}

/// Rate-limits slow work that delays others waiting for the domain lock: all endpoints together spend at most a ninth
/// of the time on it. Relaxed: the lock orders it [lock], and approximate values will do.
class Throttle {
public:
    explicit Throttle(Pace& pace) : pace_(pace) {}

    bool isDue() const {
        const uint32_t took = std::min(pace_.took.loadRelaxed(), longestTime);  // or it is garbage
        return milliseconds() - pace_.at.loadRelaxed() >= std::max(pauseFactor * (took / 1000u), shortestPause);
    }

    /// Does `work`. If it was not due, its time is added to that of the run before.
    template <class Work>
    void run(Work work) const {
        const uint32_t before = isDue() ? 0 : pace_.took.loadRelaxed();
        const uint64_t start = now();
        work();
        pace_.took.storeRelaxed(before + microsecondsSince(start));
        pace_.at.storeRelaxed(milliseconds());
    }

    /// The same for what comes on top without the lock.
    template <class Work>
    void runOnTop(Work work) const {
        const uint64_t start = now();
        work();
        pace_.took.addRelaxed(microsecondsSince(start));
    }

private:
    static constexpr uint32_t shortestPause = 10;     ///< milliseconds
    static constexpr uint32_t longestTime = 1000000;  ///< microseconds; what takes longer was stopped meanwhile
    static constexpr uint32_t pauseFactor = 8;        ///< pause length as a multiple of the work before it

    static uint32_t microsecondsSince(uint64_t start) { return static_cast<uint32_t>((now() - start) / 1000u); }

    Pace& pace_;
};

}  // namespace linx

#endif
