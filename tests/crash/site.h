#ifndef LINXIPC_TESTS_CRASH_SITE_H
#define LINXIPC_TESTS_CRASH_SITE_H

#include <atomic>
#include <cstdint>

namespace crash {

enum class End { kill, stop };

/// Kills or stops this process.
void endHere(End how);

constexpr uint32_t nowhere = ~0u;

/// Has this process end at the `site`th place that it comes to from now on, counted from 1. Right before that
/// `ended` becomes 1, which lies in memory that others see.
void arm(uint32_t site, End how, std::atomic<uint32_t>& ended);

/// Ends nowhere any more. Returns how many places the process has come to since it was armed.
uint32_t disarm();

/// The process comes to a place. Not for several threads.
void pass();

/// Around every change of shared memory: a place before it, to which the system calls since the last one belong, and
/// one after it.
struct Sites {
    Sites() { pass(); }
    ~Sites() { pass(); }
    Sites(const Sites&) = delete;
    Sites& operator=(const Sites&) = delete;
};

}  // namespace crash

#endif
