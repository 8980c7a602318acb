#include "inspect/snapshot.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

#include "host/arena/runs.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace inspect {
namespace {

/// A table of the arena: `count` entries, each of which says at `key` whose it is.
struct Table {
    size_t offset;
    size_t entryBytes;
    size_t count;
    size_t key;
};

/// Copies an arena's file to an image of it.
class Copier {
public:
    Copier(int file, char* image, const Arena& arena) : file_(file), image_(image), arena_(arena) {}

    bool copyAll(Snapshot::Events events) {
        return copy(0, slotsOffset) && (events == Snapshot::Events::leftOut || copyEvents()) && copyTable(slots()) &&
               copyTable(hunts()) && copyPageMap() && copyBlocks();
    }

private:
    // How many entries there are is what the image says, once its header is there.
    Table slots() const { return {slotsOffset, sizeof(Slot), arena_.usedSlots() + 1, offsetof(Slot, life)}; }
    Table hunts() const { return {huntsOffset, sizeof(Hunt), arena_.usedHunts(), offsetof(Hunt, hunter)}; }
    /// Before the slots, which say how far the events were overwritten meanwhile.
    bool copyEvents() { return copy(eventsOffset, sizeof(EventRing) * (size_t{arena_.usedSlots()} + 1)); }
    bool copyPageMap() { return copy(pageMapOffset, size_t{arena_.usedPages()} * sizeof(Word)); }

    bool copy(size_t offset, size_t bytes) { return read(offset, bytes, image_ + offset); }

    bool read(size_t offset, size_t bytes, char* to) const {
        while (bytes != 0) {
            const ssize_t got = uninterrupted([&] { return pread(file_, to, bytes, static_cast<off_t>(offset)); });
            if (got == 0) errno = EPROTO;  // it is shorter than it was
            if (got <= 0) return false;
            offset += static_cast<size_t>(got);
            to += got;
            bytes -= static_cast<size_t>(got);
        }
        return true;
    }

    /// Copies the table until two copies agree on the owner of each entry. A new user of a slot writes the owner
    /// first, so the older copy is of one owner, but for counts unrelated to the name; a new user of a hunt writes it
    /// last, and the hash of the name decides. Entries that keep changing owners are left out.
    bool copyTable(const Table& table) {
        constexpr int rounds = 8;
        const size_t bytes = table.count * table.entryBytes;
        if (!copy(table.offset, bytes)) return false;
        std::vector<char> again(bytes);
        for (int round = 1;; ++round) {
            if (!read(table.offset, bytes, again.data())) return false;
            const bool isLast = round == rounds;
            if (replaceChanged(table, again.data(), isLast) == 0 || isLast) return true;
        }
    }

    /// Puts entries into the image that have changed hands since, or nobody's where there is no time to look again.
    /// Returns how many.
    size_t replaceChanged(const Table& table, const char* again, bool isLast) {
        constexpr uint32_t nobodys = 0;
        size_t changed = 0;
        for (size_t i = 0; i < table.count; ++i) {
            char* entry = image_ + table.offset + i * table.entryBytes;
            const char* now = again + i * table.entryBytes;
            if (std::memcmp(entry + table.key, now + table.key, sizeof nobodys) == 0) continue;
            std::memcpy(entry, now, table.entryBytes);
            if (isLast) std::memcpy(entry + table.key, &nobodys, sizeof nobodys);
            ++changed;
        }
        return changed;
    }

    /// Small blocks whole, many at once; of large ones the heads.
    bool copyBlocks() {
        bool copied = true;
        forEachRun(arena_, [&](PageIndex page, SizeClassId sizeClass) {
            const SizeClass& c = sizeClasses[sizeClass];
            const size_t start = size_t{arena_.filePageOf(page)} * pageBytes;
            if (c.lines < linesPerPage) {
                copied = copied && gather(start, size_t{c.pages} * pageBytes);
                return;
            }
            for (uint32_t i = 0; i < c.blocks; ++i) {
                copied = copied && copy(start + size_t{i} * c.lines * lineBytes, headBytes);
            }
        });
        return copied && flush();
    }

    bool gather(size_t start, size_t bytes) {
        if (start != gatheredEnd_ && !flush()) return false;
        if (gathered_ == gatheredEnd_) gathered_ = start;
        gatheredEnd_ = start + bytes;
        return true;
    }
    bool flush() {
        const bool copied = copy(gathered_, gatheredEnd_ - gathered_);
        gathered_ = gatheredEnd_;
        return copied;
    }

    static constexpr size_t headBytes = sizeof(Block);  // with the signal's number

    const int file_;
    char* const image_;
    const Arena& arena_;
    size_t gathered_ = 0;  ///< neighbours to be copied by one read, from here
    size_t gatheredEnd_ = 0;
};

/// Empty memory in which an arena has room; it takes up what is written to it. Null with errno.
ArenaMapping makeImage(uint32_t pageCount) {
    const uint64_t bytes = (uint64_t{firstPoolPage(pageCount)} + pageCount) * pageBytes;
    if (bytes > std::numeric_limits<size_t>::max()) {
        errno = ENOMEM;
        return nullptr;
    }
    const auto length = static_cast<size_t>(bytes);
    void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) return nullptr;
    madvise(base, length, MADV_HUGEPAGE);  // it is filled by the megabyte, and a fault a page takes longer than that
    return ArenaMapping(base, {length});
}

}  // namespace

std::unique_ptr<Snapshot> Snapshot::take(int file, Events events) {
    const uint32_t pageCount = checkArenaFile(file);
    if (pageCount == 0) return nullptr;
    ArenaMapping image = makeImage(pageCount);
    if (image == nullptr) return nullptr;
    auto* const bytes = static_cast<char*>(image.get());
    std::unique_ptr<Snapshot> snapshot(new Snapshot(std::move(image), pageCount));
    return Copier(file, bytes, snapshot->arena()).copyAll(events) ? std::move(snapshot) : nullptr;
}

}  // namespace inspect
}  // namespace linx
