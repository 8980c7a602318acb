#ifndef LINXIPC_HOST_SYSTEM_CLOCK_H
#define LINXIPC_HOST_SYSTEM_CLOCK_H

#include <time.h>

#include <cstdint>

namespace linx {

constexpr uint64_t nanosecondsPerMillisecond = 1000000;

inline uint64_t toNanoseconds(const timespec& time) {
    return static_cast<uint64_t>(time.tv_sec) * 1000000000u + static_cast<uint64_t>(time.tv_nsec);
}

/// Nanoseconds of the monotonic clock.
inline uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return toNanoseconds(time);
}

/// Milliseconds of the same clock as of the last tick of the kernel: good enough for "not more than once a while",
/// and a few nanoseconds to ask.
inline uint64_t coarseMilliseconds() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return toNanoseconds(time) / 1000000u;
}

}  // namespace linx

#endif
