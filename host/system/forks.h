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

/// The kernel wipes this page in every child, also in one that was made behind the back of the fork handlers.
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

/// The mutexes of what a process has one of. A child that no handler is told of finds them free: the thread that had
/// one, perhaps because it was inside a fork itself, has stayed behind and would never let go.
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
 * What no fork may copy in the middle is entered so: store that somebody is inside, then look at the stamp, and go
 * back out if it is another than before. A fork changes the stamp for a while, has every other thread pass a memory
 * barrier, and then copies: a thread has either seen the stamp change, or the child's copy says that somebody was
 * inside.
 */

/// Keeps the compiler from looking at the stamp before what was stored is stored; a fork does the same to the
/// processor.
inline void afterEntering() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// Waits for a fork that is under way in another thread, so that the stamp is one to enter with.
void awaitFork();

/// How many forks this process is away from the first one: differs between a process and its parent.
uint32_t generation();

/// Whether what was made in `generation` has come to this process by a fork that no handler was told of. Then nothing
/// is known of who else uses it.
bool isSmuggled(uint32_t generation);

/// Has `before` called before each fork, and one of the others on each side after it, the stamp and the generation
/// being those of that side. What is registered later is called earlier before a fork, and later after it. Returns 0
/// or an errno value.
int atFork(void (*before)(), void (*inParent)(), void (*inChild)());

/// Gives a process that was made behind the handlers a stamp and a generation of its own. To be called before
/// something is made that depends on either; a fork does so itself, or parent and child would pass for processes that
/// every handler has been told of.
void acknowledge();

}  // namespace forks
}  // namespace linx

#endif
