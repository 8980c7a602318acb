#ifndef LINXIPC_HOST_ARENA_KNOWN_MEMORY_H
#define LINXIPC_HOST_ARENA_KNOWN_MEMORY_H

#include <atomic>
#include <cstdint>

namespace linx {

/// How many entries of a table in the arena's file this process knows to have memory. The words of the arena say how
/// many are in use, but they may be garbled, and touching a page without memory ends the process when the file system
/// is full. So an entry beyond those known is first given its memory, which costs nothing where it has it. Any thread
/// may use it.
class KnownMemory {
public:
    /// A table of `entries` entries that begins at `firstPage` of the file; all of it is known without a file (-1).
    KnownMemory(int file, uint32_t firstPage, uint32_t entryBytes, uint32_t entries)
        : file_(file), firstPage_(firstPage), entryBytes_(entryBytes), entries_(entries), known_(file == -1 ? entries : 0) {}

    /// Whether entry `index` may be touched. False with errno, ENOMEM when the file system is full.
    bool has(uint32_t index) const { return isKnown(index) || learn(index); }

    // Relaxed: whoever reads the count has no other thread's word for anything else.
    bool isKnown(uint32_t index) const { return index < known_.load(std::memory_order_relaxed); }

    /// The first `used` entries that may be touched; fewer where that many have no memory.
    uint32_t clip(uint32_t used) const {
        return used == 0 || has(used - 1) ? used : known_.load(std::memory_order_relaxed);
    }

private:
    [[gnu::cold]] bool learn(uint32_t index) const;
    uint32_t pagesFor(uint32_t entries) const;

    const int file_;
    const uint32_t firstPage_;
    const uint32_t entryBytes_;
    const uint32_t entries_;
    mutable std::atomic<uint32_t> known_;
};

}  // namespace linx

#endif
