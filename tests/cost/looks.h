#ifndef LINXIPC_TESTS_COST_LOOKS_H
#define LINXIPC_TESTS_COST_LOOKS_H

#include <cstdint>

namespace cost {

/// How often this process has looked at shared memory, or changed it. Not for several threads.
inline uint64_t looks = 0;

struct Look {
    Look() { ++looks; }
};

/// How many looks `operation` takes.
template <class Operation>
uint64_t looksOf(Operation operation) {
    const uint64_t before = looks;
    operation();
    return looks - before;
}

}  // namespace cost

#endif
