#ifndef LINXIPC_TESTS_KIT_IN_TIME_H
#define LINXIPC_TESTS_KIT_IN_TIME_H

#include <sched.h>

#include <chrono>
#include <cstdint>

/// How long, in milliseconds, a test waits for what must come before it fails.
constexpr uint32_t patience = 20000;

/// Tries again and again whether the condition holds. False when it does not within so many milliseconds.
template <class Condition>
bool comesTrue(Condition condition, uint32_t milliseconds = patience) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        sched_yield();
    }
    return true;
}

#endif
