#ifndef LINXIPC_HOST_SYSTEM_FORKS_H
#define LINXIPC_HOST_SYSTEM_FORKS_H

#include <atomic>
#include <cstdint>

#include "host/system/process_mutex.h"

namespace linx {

/// Tells whether a fork lies between then and now, and on which side of it this process is. Any thread may ask.
namespace forks {

namespace detail {

constexpr uint32_t kernelPageBytes = 4096;

/// The kernel wipes this page in every child, even in one forked without the fork handlers.
struct alignas(kernelPageBytes) WipedPage {
    std::atomic<uint32_t> stamp;
    ProcessMutex forks;
    ProcessMutex handles;
    ProcessMutex domains;
    ProcessMutex fileLocks;
};
static_assert(sizeof(WipedPage) == kernelPageBytes, "nothing else may be wiped");
extern WipedPage wipedPage;

}  // namespace detail

/// The mutexes of per-process objects. A child forked without handlers finds them free: a thread that held one,
/// perhaps inside a fork itself, exists only in the parent and would never unlock it.
constexpr ProcessMutex& handlesMutex() {
    return detail::wipedPage.handles;
}
constexpr ProcessMutex& domainsMutex() {
    return detail::wipedPage.domains;
}
constexpr ProcessMutex& fileLocksMutex() {
    return detail::wipedPage.fileLocks;
}

/// The stamp of a process made by `_Fork` or clone, which no handler has told of the fork.
constexpr uint32_t unannounced = 0;

/// No process has a stamp from here on, but for `forking`, which it has while it forks.
constexpr uint32_t reserved = ~0u - 7;
constexpr uint32_t forking = reserved;

/// Changes with every fork, in the parent and in the child. Relaxed: a thread learns of a fork by its own next look.
inline uint32_t stamp() {
    return detail::wipedPage.stamp.load(std::memory_order_relaxed);
}

/*
 * To keep a fork from copying a critical section in the middle: store that a thread is inside, then read the stamp,
 * and go back out if it has changed. A fork changes the stamp for a while, has every other thread pass a memory
 * barrier, and then copies: a thread has either seen the stamp change, or the child's copy says that one was inside.
 */

/// Keeps the compiler from reading the stamp before the store is done; a fork's barrier does the same to the
/// processor.
inline void afterEntering() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// Waits for a fork that is under way in another thread, so that the stamp is one to enter with.
void awaitFork();

/// How many forks this process is away from the first one: differs between a process and its parent.
uint32_t generation();

/// Whether what was made in `generation` was copied to this process by a fork without handlers. Then it is unknown
/// who else uses it.
bool isSmuggled(uint32_t generation);

/// Has `before` called before each fork, and one of the others on each side after it, the stamp and the generation
/// being those of that side. What is registered later is called earlier before a fork, and later after it. Returns 0
/// or an errno value.
int atFork(void (*before)(), void (*inParent)(), void (*inChild)());

/// Gives a process forked without handlers its own stamp and generation. To be called before making what depends on
/// either; a fork does so itself, or parent and child would pass for processes forked with handlers.
void acknowledge();

}  // namespace forks
}  // namespace linx

#endif
