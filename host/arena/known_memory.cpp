#include "host/arena/known_memory.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "host/arena/arena_file.h"

namespace linx {
namespace {

/// Whether a mapped page may be touched, without touching it: to wake sleepers on a word of it, of which there are
/// none, the kernel has to access the page, and fails with EFAULT where an access would end this process. No other
/// error means that the page is missing.
bool mayBeTouched(const char* page) {
    return syscall(SYS_futex, page, FUTEX_WAKE, 0, nullptr, nullptr, 0) != -1 || errno != EFAULT;
}

}  // namespace

/// Pages that hold the first `entries` entries.
uint32_t KnownMemory::pagesFor(uint32_t entries) const {
    return static_cast<uint32_t>((uint64_t{entries} * entryBytes_ + pageBytes - 1) / pageBytes);
}

bool KnownMemory::reserve(uint32_t index) const {
    if (index >= entries_) {
        errno = ENOMEM;
        return false;
    }
    const uint32_t from = pagesFor(known_.load(std::memory_order_relaxed));
    const uint32_t to = pagesFor(index + 1);
    if (!reservePages(file_, firstPage_ + from, to - from)) return false;
    know(to);
    return true;
}

bool KnownMemory::learn(uint32_t index) const {
    const int keptErrno = errno;
    if (!reserve(index)) {
        if (index >= entries_) return false;
        // One by one, up to the first that is missing: all that was ever put to use lies before.
        const uint32_t end = pagesFor(index + 1);
        uint32_t page = pagesFor(known_.load(std::memory_order_relaxed));
        while (page < end && mayBeTouched(start_ + size_t{page} * pageBytes)) ++page;
        know(page);
        if (!isKnown(index)) return false;
    }
    errno = keptErrno;
    return true;
}

/// The first pages have memory. Whole pages, so that entries beside each other are learnt at once.
void KnownMemory::know(uint32_t pages) const {
    const auto last = static_cast<uint32_t>(std::min<uint64_t>(uint64_t{pages} * pageBytes / entryBytes_, entries_));
    uint32_t known = known_.load(std::memory_order_relaxed);
    while (known < last && !known_.compare_exchange_weak(known, last, std::memory_order_relaxed)) {
    }
}

}  // namespace linx
