#include "host/system/forks.h"

#include <pthread.h>
#include <sys/mman.h>

namespace linx {
namespace forks {
namespace detail {

WipedPage wipedPage;

}  // namespace detail

namespace {

// Relaxed throughout: threads learn of a fork from their own next operation, and a child begins with one thread.

std::atomic<uint32_t> latestStamp{unannounced};  ///< survives where the page is wiped
std::atomic<uint32_t> generations{0};
std::atomic<uint32_t> firstOwnGeneration{0};

void renewStamp() {
    uint32_t next = latestStamp.load(std::memory_order_relaxed) + 1;
    while (next == unannounced || next == never) ++next;
    latestStamp.store(next, std::memory_order_relaxed);
    detail::wipedPage.stamp.store(next, std::memory_order_relaxed);
}

uint32_t enterGeneration() {
    return generations.fetch_add(1, std::memory_order_relaxed) + 1;
}

void afterForkInChild() {
    enterGeneration();
    renewStamp();
}

int begin() {
    // Where the kernel knows no such advice, or has larger pages, such children go unnoticed.
    madvise(&detail::wipedPage, sizeof detail::wipedPage, MADV_WIPEONFORK);
    renewStamp();
    return pthread_atfork(nullptr, renewStamp, afterForkInChild);
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

uint32_t generation() {
    return generations.load(std::memory_order_relaxed);
}

bool isSmuggled(uint32_t made) {
    return stamp() == unannounced || made < firstOwnGeneration.load(std::memory_order_relaxed);
}

void acknowledge() {
    if (stamp() != unannounced) return;
    firstOwnGeneration.store(enterGeneration(), std::memory_order_relaxed);
    renewStamp();
}

}  // namespace forks
}  // namespace linx
