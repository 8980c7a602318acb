#include "host/arena/known_memory.h"

#include <algorithm>
#include <cerrno>

#include "host/arena/arena_file.h"

namespace linx {

/// Pages that hold the first `entries` entries.
uint32_t KnownMemory::pagesFor(uint32_t entries) const {
    return static_cast<uint32_t>((uint64_t{entries} * entryBytes_ + unitBytes - 1) / unitBytes);
}

bool KnownMemory::learn(uint32_t index) const {
    if (index >= entries_) {
        errno = ENOMEM;
        return false;
    }
    uint32_t known = known_.load(std::memory_order_relaxed);
    const uint32_t from = pagesFor(known);
    const uint32_t to = pagesFor(index + 1);
    if (!reservePages(file_, firstPage_ + from, to - from)) return false;
    // Whole pages, so that entries beside each other are learnt at once.
    const auto last = static_cast<uint32_t>(std::min<uint64_t>(uint64_t{to} * unitBytes / entryBytes_, entries_));
    while (known < last && !known_.compare_exchange_weak(known, last, std::memory_order_relaxed)) {
    }
    return true;
}

}  // namespace linx
