#include "host/arena/arena_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "host/arena/layout.h"
#include "host/system/environment.h"
#include "host/system/new_file.h"
#include "host/system/signal_shield.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace {

constexpr uint32_t pagesPerMegabyte = (1u << 20) / pageBytes;
constexpr uint32_t defaultMegabytes = 256;
constexpr uint32_t minMegabytes = 4;      // holds a signal of the largest size in any domain
constexpr uint32_t maxMegabytes = 16384;  // the page map's entries and the references still count it
constexpr uint32_t maxMadeMegabytes = sizeof(void*) < 8 ? 1024 : maxMegabytes;  // its maker has to map it

uint32_t chosenPages() {
    const uint32_t megabytes = numberFromEnvironment("LINX_ARENA_MB", minMegabytes, maxMegabytes, defaultMegabytes);
    return std::min(megabytes, maxMadeMegabytes) * pagesPerMegabyte;
}

/// Whether new mappings are populated at once, as after mlockall(MCL_FUTURE): tested with an untouched page.
bool isMemoryLocked() {
    const auto kernelPageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, kernelPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) return true;  // where even that is too much, sparing is right
    unsigned char isIn = 0;
    const bool locked = mincore(page, kernelPageBytes, &isIn) == 0 && (isIn & 1) != 0;
    munmap(page, kernelPageBytes);
    return locked;
}

constexpr uint64_t largestPages = uint64_t{maxMegabytes} * pagesPerMegabyte;
static_assert((firstPoolPage(largestPages) + largestPages) * linesPerPage <= uint64_t{1} << refBits,
              "every line of the largest arena has a reference");

off_t fileBytes(uint32_t pageCount) {
    return (static_cast<off_t>(firstPoolPage(pageCount)) + static_cast<off_t>(pageCount)) * pageBytes;
}

// Relaxed: a copy of one's own, written and read by system calls; the file's name is what publishes it.
void writeIdentity(Header& header, uint32_t pageCount) {
    header.version.storeRelaxed(arenaVersion);
    header.headerBytes.storeRelaxed(sizeof(Header));
    header.slotBytes.storeRelaxed(sizeof(Slot));
    header.slots.storeRelaxed(slotCount);
    header.huntBytes.storeRelaxed(sizeof(Hunt));
    header.hunts.storeRelaxed(huntCount);
    header.pageCount.storeRelaxed(pageCount);
    header.filePages.storeRelaxed(firstPoolPage(pageCount) + pageCount);
    header.sizeClasses.storeRelaxed(sizeClassCount);
    header.eventBytes.storeRelaxed(sizeof(Event));
    header.magic.storeRelaxed(arenaMagic);
}

bool hasIdentity(const Header& header) {
    const uint32_t pageCount = header.pageCount.loadRelaxed();
    return header.magic.loadRelaxed() == arenaMagic && header.version.loadRelaxed() == arenaVersion &&
           header.headerBytes.loadRelaxed() == sizeof(Header) && header.slotBytes.loadRelaxed() == sizeof(Slot) &&
           header.slots.loadRelaxed() == slotCount && header.huntBytes.loadRelaxed() == sizeof(Hunt) &&
           header.hunts.loadRelaxed() == huntCount && header.sizeClasses.loadRelaxed() == sizeClassCount &&
           header.eventBytes.loadRelaxed() == sizeof(Event) &&
           pageCount >= minMegabytes * pagesPerMegabyte && pageCount <= maxMegabytes * pagesPerMegabyte &&
           header.filePages.loadRelaxed() == firstPoolPage(pageCount) + pageCount;
}

/// Whether a call that enlarges a file or gives memory to it failed. Lack of space and limits of the process become
/// ENOMEM; the signal that the kernel sends about such a limit is discarded.
template <class Call>
bool fails(Call call) {
    SignalShield shield(SIGXFSZ);
    const int failure = call();
    if (failure == EFBIG) shield.raised();
    if (failure != 0) errno = failure == ENOSPC || failure == EDQUOT || failure == EFBIG ? ENOMEM : failure;
    return failure != 0;
}

/// Header, buckets and page map get their memory at once; slots, hunts, events and pages when they are first used.
bool fill(int file, uint32_t pageCount, unsigned mode) {
    if (fchmod(file, mode) == -1) return false;
    const off_t bytes = fileBytes(pageCount);
    if (fails([&] { return uninterrupted([&] { return ftruncate(file, bytes); }) == 0 ? 0 : errno; })) return false;
    const uint32_t tablePage = pageMapOffset / pageBytes;
    if (!reservePages(file, 0, slotsOffset / pageBytes)) return false;
    if (!reservePages(file, tablePage, firstPoolPage(pageCount) - tablePage)) return false;
    Header header{};
    writeIdentity(header, pageCount);
    return !fails([&] {
        const ssize_t written = uninterrupted([&] { return pwrite(file, &header, sizeof header, 0); });
        if (written == -1) return errno;
        return written == static_cast<ssize_t>(sizeof header) ? 0 : ENOSPC;
    });
}

}  // namespace

int openArenaFile(int directory) {
    return uninterrupted(
        [&] { return openat(directory, arenaFileName, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); });
}

int openOrMakeArenaFile(int directory, unsigned mode, bool& made) {
    struct stat status;
    if (fstatat(directory, arenaFileName, &status, AT_SYMLINK_NOFOLLOW) == -1) {
        if (errno != ENOENT) return -1;
        const auto fillArena = [mode](int file) { return fill(file, chosenPages(), mode); };
        if (!makeWhole(directory, arenaFileName, fillArena)) return -1;
        made = true;
    } else if (!S_ISREG(status.st_mode)) {  // opening it might already do something to it
        errno = EPROTO;
        return -1;
    }
    return openArenaFile(directory);
}

uint32_t checkArenaFile(int file) {
    Header header{};
    struct stat status;
    if (fstat(file, &status) == -1) return 0;
    const ssize_t got =
        S_ISREG(status.st_mode) ? uninterrupted([&] { return pread(file, &header, sizeof header, 0); }) : 0;
    if (got == -1) return 0;
    const bool fits = got == static_cast<ssize_t>(sizeof header) && hasIdentity(header) &&
                      status.st_size == fileBytes(header.pageCount.loadRelaxed());
    if (fits) return header.pageCount.loadRelaxed();
    errno = EPROTO;
    return 0;
}

void Unmap::operator()(void* base) const {
    munmap(base, bytes);
}

ArenaMapping mapArenaFile(int file, uint32_t pageCount) {
    const auto wanted = static_cast<uint64_t>(fileBytes(pageCount));
    if (wanted > std::numeric_limits<size_t>::max()) {  // made by a process with more address space
        errno = ENOMEM;
        return nullptr;
    }
    const auto bytes = static_cast<size_t>(wanted);
    const bool sparingly = isMemoryLocked();
    const int access = PROT_READ | PROT_WRITE;
    void* base = mmap(nullptr, bytes, sparingly ? PROT_NONE : access, MAP_SHARED, file, 0);
    if (base == MAP_FAILED) {
        if (errno == EAGAIN) errno = ENOMEM;  // mappings are locked, and this exceeds the limit
        return nullptr;
    }
    ArenaMapping mapping(base, {bytes});
    if (!sparingly) return mapping;
    // Without access nothing was brought in. If locking on fault fails, rather lock nothing than all.
    if (mlock2(base, bytes, MLOCK_ONFAULT) == -1) munlock(base, bytes);
    return mprotect(base, bytes, access) == 0 ? std::move(mapping) : nullptr;
}

bool reservePages(int file, uint32_t first, uint32_t count) {
    // A signal makes the kernel undo what it has begun: if they come in rapid succession, large pieces would never be
    // done.
    constexpr uint32_t smallPiece = 16;
    constexpr uint32_t largestPiece = 4096;
    uint32_t piece = smallPiece;
    while (count != 0) {
        const uint32_t pages = std::min(count, piece);
        const off_t start = static_cast<off_t>(first) * pageBytes;
        const bool failed =
            fails([&] { return posix_fallocate(file, start, static_cast<off_t>(pages) * pageBytes); });
        if (failed && errno != EINTR) return false;
        piece = failed ? smallPiece : std::min(2 * piece, largestPiece);
        if (failed) continue;
        first += pages;
        count -= pages;
    }
    return true;
}

}  // namespace linx
