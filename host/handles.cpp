#include "host/handles.h"

#include <mutex>

#include "host/endpoint/endpoint.h"
#include "host/system/forks.h"

namespace linx {
namespace handles {

LINX table[capacity];

namespace {

constexpr ProcessMutex& mutex = forks::handlesMutex();
uint32_t nextEntry = 0;  ///< goes round, so that the entry used again is the one unused for longest

// Held during forks, so that no child finds it locked.
const int registered = forks::atFork([] { mutex.lock(); }, [] { mutex.unlock(); }, [] { mutex.unlock(); });

}  // namespace

LINX* add(std::unique_ptr<Endpoint> endpoint) {
    const std::lock_guard<ProcessMutex> lock(mutex);
    for (uint32_t tried = 0; tried < capacity; ++tried) {
        LINX& entry = table[nextEntry++ % capacity];
        // Relaxed: the mutex orders adding and removing.
        if (entry.endpoint.load(std::memory_order_relaxed) != nullptr) continue;
        // Release [handle]: a thread that is given the handle finds the endpoint made.
        entry.endpoint.store(endpoint.release(), std::memory_order_release);
        return &entry;
    }
    return nullptr;
}

std::unique_ptr<Endpoint> remove(LINX* handle) {
    const std::lock_guard<ProcessMutex> lock(mutex);
    return std::unique_ptr<Endpoint>(handle->endpoint.exchange(nullptr, std::memory_order_acq_rel));
}

}  // namespace handles
}  // namespace linx
