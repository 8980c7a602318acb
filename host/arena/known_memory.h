#ifndef LINXIPC_HOST_ARENA_KNOWN_MEMORY_H
#define LINXIPC_HOST_ARENA_KNOWN_MEMORY_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "host/arena/size_classes.h"

namespace linx {

/// How many entries of a table in the arena this process knows to have memory. The words of the arena say how many
/// are in use, but they may be garbled, and touching a page without memory ends the process when the file system is
/// full. So an entry beyond those known is first given its memory, which costs nothing where it has it. Any thread
/// may use it.
class KnownMemory {
public:
    /// A table of `entries` entries that begins at `firstPage` of the file, which is mapped at `base`; all of it is
    /// known without a file (-1).
    KnownMemory(const char* base, int file, uint32_t firstPage, uint32_t entryBytes, uint32_t entries)
        : start_(base + size_t{firstPage} * pageBytes),
          file_(file),
          firstPage_(firstPage),
          entryBytes_(entryBytes),
          entries_(entries),
          known_(file == -1 ? entries : 0) {}

    /// Whether entry `index` may be touched: it can be given memory, or has some already. An entry in use must not
    /// look like garbage because the kernel refuses to reserve it. errno stays on true.
    bool has(uint32_t index) const { return isKnown(index) || learn(index); }

    /// Gives memory to the entries up to `index`, which are to be put to use. False with errno, ENOMEM when the file
    /// system is full.
    bool provide(uint32_t index) const { return isKnown(index) || reserve(index); }

    // Relaxed: the count publishes nothing else to other threads.
    bool isKnown(uint32_t index) const { return index < known_.load(std::memory_order_relaxed); }

    /// The first `used` entries that may be touched; fewer where that many have no memory.
    uint32_t clip(uint32_t used) const {
        return used == 0 || has(used - 1) ? used : known_.load(std::memory_order_relaxed);
    }

private:
    bool learn(uint32_t index) const;
    bool reserve(uint32_t index) const;
    void know(uint32_t pages) const;
    uint32_t pagesFor(uint32_t entries) const;

    const char* const start_;
    const int file_;
    const uint32_t firstPage_;
    const uint32_t entryBytes_;
    const uint32_t entries_;
    mutable std::atomic<uint32_t> known_;
};

}  // namespace linx

#endif
