#include "host/system/forks.h"

#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace linx {
namespace forks {
namespace detail {

WipedPage wipedPage;

}  // namespace detail

namespace {

// Relaxed unless noted: threads learn of a fork from their own next operation, and a child begins with one thread.

constexpr ProcessMutex& forkMutex = detail::wipedPage.forks;  ///< of the thread that forks

std::atomic<uint32_t> latestStamp{unannounced};  ///< survives where the page is wiped
std::atomic<uint32_t> generations{0};
std::atomic<uint32_t> firstOwnGeneration{0};

void renewStamp() {
    uint32_t next = latestStamp.load(std::memory_order_relaxed) + 1;
    while (next == unannounced || next >= reserved) ++next;
    latestStamp.store(next, std::memory_order_relaxed);
    // Release: whoever asks `isAnnounced` with another thread of the process finds the generations made.
    detail::wipedPage.stamp.store(next, std::memory_order_release);
}

/// Has every running thread of the process pass a barrier. Where the kernel knows no such thing, a thread that enters
/// at the very instant of a fork may go unnoticed.
void passBarriers(int command) {
    const int keptErrno = errno;
    syscall(SYS_membarrier, command, 0, 0);
    errno = keptErrno;
}

uint32_t enterGeneration() {
    return generations.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// Acquire: see renewStamp().
bool isAnnounced() {
    return detail::wipedPage.stamp.load(std::memory_order_acquire) != unannounced;
}

/// Under the mutex: another thread may have done so by now, and done again it would disown what that one has made
/// since.
void announce() {
    if (isAnnounced()) return;
    firstOwnGeneration.store(enterGeneration(), std::memory_order_relaxed);
    renewStamp();
}

void beforeFork() {
    forkMutex.lock();
    announce();  // nothing would tell afterwards that this process, too, came of a fork that no handler was told of
    detail::wipedPage.stamp.store(forking, std::memory_order_seq_cst);
    passBarriers(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
}

void afterForkInParent() {
    renewStamp();
    forkMutex.unlock();
}

void afterForkInChild() {
    enterGeneration();
    renewStamp();
    forkMutex.unlock();
}

int begin() {
    // Without MADV_WIPEONFORK, or with larger pages, forks without handlers go unnoticed.
    madvise(&detail::wipedPage, sizeof detail::wipedPage, MADV_WIPEONFORK);
    renewStamp();
    passBarriers(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
    return pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

int ensureBegun() {
    static const int begun = begin();
    return begun;
}

const int registered = ensureBegun();

}  // namespace

int atFork(void (*before)(), void (*inParent)(), void (*inChild)()) {
    ensureBegun();
    return pthread_atfork(before, inParent, inChild);
}

void awaitFork() {
    while (stamp() == forking) {
        const std::lock_guard<ProcessMutex> lock(forkMutex);
    }
}

uint32_t generation() {
    return generations.load(std::memory_order_relaxed);
}

bool isSmuggled(uint32_t made) {
    return !isAnnounced() || made < firstOwnGeneration.load(std::memory_order_relaxed);
}

void acknowledge() {
    if (isAnnounced()) return;
    const std::lock_guard<ProcessMutex> lock(forkMutex);
    announce();
}

}  // namespace forks
}  // namespace linx
