#include "host/handles.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include "host/endpoint/endpoint.h"

struct LINX {
    std::atomic<linx::Endpoint*> endpoint;
};

namespace linx {
namespace handles {
namespace {

constexpr uint32_t capacity = 2 * slotCount;
constexpr unsigned entryShift = sizeof(LINX) == 8 ? 3 : 2;
static_assert(sizeof(LINX) == 1u << entryShift, "an entry is one pointer");

LINX table[capacity];
std::mutex mutex;
uint32_t nextEntry = 0;  ///< goes round, so that the entry used again is the one unused for longest

}  // namespace

LINX* add(std::unique_ptr<Endpoint> endpoint) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (uint32_t tried = 0; tried < capacity; ++tried) {
        LINX& entry = table[nextEntry++ % capacity];
        // Relaxed: the mutex orders adding and removing.
        if (entry.endpoint.load(std::memory_order_relaxed) != nullptr) continue;
        // Release: (S), a thread that is given the handle finds the endpoint made.
        entry.endpoint.store(endpoint.release(), std::memory_order_release);
        return &entry;
    }
    return nullptr;
}

Endpoint* find(const LINX* handle) {
    const uintptr_t offset = reinterpret_cast<uintptr_t>(handle) - reinterpret_cast<uintptr_t>(table);
    // Turned round, the offset of what is not the start of an entry is huge: one comparison tells all that is none.
    const uintptr_t index = offset >> entryShift | offset << (8 * sizeof offset - entryShift);
    if (index >= capacity) return nullptr;
    return table[index].endpoint.load(std::memory_order_acquire);  // (S)
}

std::unique_ptr<Endpoint> remove(LINX* handle) {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::unique_ptr<Endpoint>(handle->endpoint.exchange(nullptr, std::memory_order_acq_rel));
}

}  // namespace handles
}  // namespace linx
