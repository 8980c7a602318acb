#include "tests/ambush/ambush.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace ambush {

uint32_t left = 0;
uint64_t looksAllowed = ~uint64_t{0};

namespace {

/// In an arena of 65,536 blocks and 8192 slots: every walk may be as long as there are blocks, and a few may be
/// behind each other, but not inside each other.
constexpr uint64_t mostLooks = 20000000;

std::function<void()> waiting;

}  // namespace

void spring() {
    const std::function<void()> action = std::move(waiting);
    action();
}

void lookedTooOften() {
    std::fprintf(stderr, "not so: an operation looks at the arena a bounded number of times\n");
    std::abort();
}

void lay(uint32_t looks, std::function<void()> action) {
    waiting = std::move(action);
    left = looks;
}

bool lift() {
    const bool inVain = left != 0;
    lay(0, nullptr);
    return inVain;
}

void begin() {
    looksAllowed = mostLooks;
}

}  // namespace ambush
