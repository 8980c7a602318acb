#ifndef LINXIPC_TESTS_HOST_MEMORY_ARENA_H
#define LINXIPC_TESTS_HOST_MEMORY_ARENA_H

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/arena/name_table.h"
#include "host/arena/share.h"
#include "host/system/scoped_descriptor.h"

namespace linxtest {

constexpr int noFile = -2;  ///< a descriptor that gives no memory

/// An empty arena that no process joins, between two pages that nobody may touch.
class MemoryArena {
public:
    static constexpr uint32_t pages = 1024;

    MemoryArena() : file_(memfd_create("arena", MFD_CLOEXEC)) {
        EXPECT_EQ(ftruncate(file_.get(), static_cast<off_t>(bytes())), 0);
        guarded_ = static_cast<char*>(
            mmap(nullptr, bytes() + 2 * linx::pageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mmap(base(), bytes(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file_.get(), 0);
    }
    ~MemoryArena() { munmap(guarded_, bytes() + 2 * linx::pageBytes); }
    MemoryArena(const MemoryArena&) = delete;
    MemoryArena& operator=(const MemoryArena&) = delete;

    linx::Arena arena(int file = -1) const { return linx::Arena(base(), pages, file); }
    int file() const { return file_.get(); }

    /// Leaves only the first `bytes` with memory: whoever touches the rest is ended, as where a file system is full.
    void cutTo(size_t bytes) const { EXPECT_EQ(ftruncate(file_.get(), static_cast<off_t>(bytes)), 0); }
    void makeWhole() const { cutTo(bytes()); }

    char* base() const { return guarded_ + linx::pageBytes; }
    static size_t bytes() { return size_t{linx::firstPoolPage(pages) + pages} * linx::pageBytes; }

    /// Cuts a run of the class at the page, as a lease would. Returns its first block.
    linx::Ref layRun(uint32_t page, uint32_t itsClass) const {
        const linx::SizeClassId sizeClass{itsClass};
        for (uint32_t i = 0; i < linx::sizeClasses[sizeClass].pages; ++i) {
            arena().pageEntry(linx::PageIndex{page + i}).storeRelaxed(linx::makePageEntry(sizeClass, i));
        }
        return arena().refOfPage(linx::PageIndex{page});
    }

private:
    linx::ScopedDescriptor file_;
    char* guarded_;
};

inline linx::Name nameOf(const std::string& text) {
    return linx::Name(text.data(), static_cast<uint32_t>(text.size()));
}

/// `count` names that share one bucket.
inline std::vector<std::string> namesOfOneBucket(size_t count) {
    std::vector<std::string> names;
    const uint32_t bucket = nameOf("name0").hash() % linx::slotCount;
    for (uint32_t i = 0; names.size() < count; ++i) {
        const std::string name = "name" + std::to_string(i);
        if (nameOf(name).hash() % linx::slotCount == bucket) names.push_back(name);
    }
    return names;
}

/// Writes an open endpoint into a slot, and into the name table.
inline linx::Spid layOpenSlot(const linx::Arena& arena, linx::SlotIndex index, const std::string& text,
                              uint32_t generation = 1) {
    const linx::Name name = nameOf(text);
    linx::Slot& slot = arena.slot(index);
    slot.nameHash.storeRelaxed(name.hash());
    slot.nameLength.storeRelaxed(name.length());
    name.writeTo(slot.name);
    const linx::Spid spid = linx::makeSpid(index, generation);
    linx::share::begin(slot, spid);
    slot.life.storeRelaxed(linx::openAs(spid));
    linx::Word& used = arena.header().slotsUsed;
    used.storeRelaxed(std::max(used.loadRelaxed(), numberOf(index)));
    linx::insertName(arena, index);
    return spid;
}

}  // namespace linxtest

#endif
