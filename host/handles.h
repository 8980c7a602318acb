#ifndef LINXIPC_HOST_HANDLES_H
#define LINXIPC_HOST_HANDLES_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "host/arena/spid.h"
#include "platform/linx.h"

namespace linx {

class Endpoint;

}  // namespace linx

struct LINX {
    std::atomic<linx::Endpoint*> endpoint;
};

namespace linx {

/// The handles of this process. A handle is the address of a table entry, so that any pointer can be checked without
/// dereferencing it; the entry free for longest is reused first, so that closed handles are recognised for long. Any
/// thread may use the table.
namespace handles {

/// Gives out a handle for the endpoint; null when there are too many.
LINX* add(std::unique_ptr<Endpoint> endpoint);

constexpr uint32_t capacity = 2 * slotCount;
extern LINX table[capacity];

/// The endpoint behind the handle; null when it is none.
inline Endpoint* endpointOf(const LINX* handle) {
    constexpr unsigned entryShift = sizeof(LINX) == 8 ? 3 : 2;
    static_assert(sizeof(LINX) == 1u << entryShift, "an entry is one pointer");
    const uintptr_t offset = reinterpret_cast<uintptr_t>(handle) - reinterpret_cast<uintptr_t>(table);
    // Rotating moves misaligned low bits to the top, so one bound check rejects misaligned and foreign pointers. It
    // saves every operation a second comparison and its branch.
    const uintptr_t index = offset >> entryShift | offset << (8 * sizeof offset - entryShift);
    if (index >= capacity) return nullptr;
    return table[index].endpoint.load(std::memory_order_acquire);  // [handle]
}

/// Takes the handle back.
std::unique_ptr<Endpoint> remove(LINX* handle);

}  // namespace handles
}  // namespace linx

#endif
