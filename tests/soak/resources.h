#ifndef LINXIPC_TESTS_SOAK_RESOURCES_H
#define LINXIPC_TESTS_SOAK_RESOURCES_H

#include <cstdint>

namespace soak {

/// What a process holds.
struct Resources {
    uint64_t heapBytes;  ///< in use, as far as malloc tells: 0 under sanitizers, which bring their own
    uint32_t descriptors;
    uint32_t residentKib;   ///< all memory
    uint32_t anonymousKib;  ///< that of them which is the process's own
    uint32_t met;           ///< endpoints whose names its own has learnt
    uint32_t held;          ///< signals that its endpoint still holds
};

/// Counts what this process holds.
Resources countResources();

}  // namespace soak

#endif
