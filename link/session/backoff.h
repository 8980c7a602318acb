#ifndef LINXIPC_LINK_SESSION_BACKOFF_H
#define LINXIPC_LINK_SESSION_BACKOFF_H

#include <algorithm>

#include "link/session/events.h"

namespace linx::link {

/// When to dial again: soon at first, then less and less often, and not all nodes at the same moment.
class Backoff {
public:
    bool isDue(Time now) const { return now >= due_; }
    Time due() const { return due_; }

    void failed(uint64_t random, Time now) {
        // Between half of the delay and all of it.
        const Time half = delay_ / 2;
        due_ = now + half + Time(random % static_cast<uint64_t>(half.count() + 1));
        delay_ = std::min(2 * delay_, longest);
    }
    void succeeded() { delay_ = shortest; }

private:
    static constexpr Time shortest = std::chrono::milliseconds(50);
    static constexpr Time longest = std::chrono::seconds(2);

    Time delay_ = shortest;
    Time due_ = {};
};

}  // namespace linx::link

#endif
