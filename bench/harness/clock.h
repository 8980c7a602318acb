#ifndef LINXIPC_BENCH_HARNESS_CLOCK_H
#define LINXIPC_BENCH_HARNESS_CLOCK_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>

namespace bench {

inline std::uint64_t clockNanoseconds(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000U + static_cast<std::uint64_t>(time.tv_nsec);
}

inline std::uint64_t now() {
    return clockNanoseconds(CLOCK_MONOTONIC);
}

/// What all threads of a process have used of the processors so far; 0 for one that is gone.
inline std::uint64_t processorNanoseconds(pid_t process) {
    clockid_t clock;
    return clock_getcpuclockid(process, &clock) == 0 ? clockNanoseconds(clock) : 0;
}

}  // namespace bench

#endif
