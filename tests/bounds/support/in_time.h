#ifndef LINXIPC_TESTS_BOUNDS_SUPPORT_IN_TIME_H
#define LINXIPC_TESTS_BOUNDS_SUPPORT_IN_TIME_H

#include <unistd.h>

#include <chrono>

#include "tests/processes/support/line.h"

/// Whether `attempt`, which wants the room of somebody who has died, succeeds in time: the dead are looked for now
/// and then, the less often the longer it takes.
template <class Attempt>
bool succeedsInTime(Attempt attempt) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
    while (!attempt()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        usleep(1000);
    }
    return true;
}

#endif
