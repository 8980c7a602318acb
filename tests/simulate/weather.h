#ifndef LINXIPC_TESTS_SIMULATE_WEATHER_H
#define LINXIPC_TESTS_SIMULATE_WEATHER_H

#include "link/session/events.h"
#include "tests/simulate/random.h"

namespace simulate {

/// What goes wrong, and how often: in parts of a million for each frame, or for each turn of the world.
struct Weather {
    explicit Weather(Random& random)
        : lose(rate(random, 4000)),
          twice(rate(random, 4000)),
          reorder(rate(random, 4000)),
          stall(rate(random, 8000)),
          late(rate(random, 20000)),
          garbage(rate(random, 1000)),
          cut(rate(random, 3000)),
          halfCut(rate(random, 1500)),
          partition(rate(random, 2000)),
          pause(rate(random, 2000)),
          crash(rate(random, 1500)),
          noMemory(rate(random, 4000)),
          latency(random.between(20, 3000)),
          bytesAMillisecond(random.between(500, 200000)),
          capacity(random.between(20000, 300000)),
          isHeavy(random.below(6) == 0) {}

    uint64_t lose, twice, reorder, stall, late, garbage;
    uint64_t cut, halfCut, partition, pause, crash, noMemory;
    linx::link::Time latency;
    uint64_t bytesAMillisecond;
    uint64_t capacity;  ///< bytes that a connection takes before it says "later"
    bool isHeavy;       ///< many signals are large

private:
    /// Most kinds of trouble are absent from a run, so that others are seen alone.
    static uint64_t rate(Random& random, uint64_t most) { return random.below(3) == 0 ? random.below(most) : 0; }
};

}  // namespace simulate

#endif
