#ifndef LINXIPC_BENCH_HARNESS_EFFORT_H
#define LINXIPC_BENCH_HARNESS_EFFORT_H

#include <cstdint>

namespace bench {

/// How long something is done: until both the time has passed and it was done that often.
struct Stretch {
    std::uint64_t nanoseconds;
    std::uint64_t messages;
};

/// What a run takes upon itself. Nothing is measured while it warms up.
struct Effort {
    Stretch warmUp;
    Stretch measured;
    bool quick;  ///< only to see that everything works: large populations become small ones
};

}  // namespace bench

#endif
