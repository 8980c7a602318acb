#include "host/recovery/cold_section.h"

#include <pthread.h>
#include <sys/file.h>

#include <mutex>

#include "host/recovery/repair.h"

namespace linx {
namespace {

/// One at a time among the threads of the process, whatever the domain: the file lock does not tell threads apart. A
/// fork waits for it, so that no child inherits the descriptor that holds the file lock.
pthread_mutex_t threads = PTHREAD_MUTEX_INITIALIZER;
std::atomic<uint32_t> forks{0};
std::atomic<uint32_t> generation{0};

// Relaxed: other threads learn of a fork from their own next operation.
void count(std::atomic<uint32_t>& what) {
    what.fetch_add(1, std::memory_order_relaxed);
}

void beforeFork() {
    pthread_mutex_lock(&threads);
}
void afterForkInParent() {
    count(forks);
    pthread_mutex_unlock(&threads);
}
void afterForkInChild() {
    count(generation);
    afterForkInParent();
}

const int registered = pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);

bool lockFile(int file) {
    while (flock(file, LOCK_EX) == -1) {
        if (errno != EINTR) return false;
    }
    return true;
}

}  // namespace

ColdSection::Threads::Threads() {
    pthread_mutex_lock(&threads);
}
ColdSection::Threads::~Threads() {
    pthread_mutex_unlock(&threads);
}

ColdSection::ColdSection(const Domain& domain) : domain_(domain) {
    // A descriptor of its own each time: a lock belongs to an open file, and one that a forked child shares would
    // outlive its holder.
    file_.reset(domain.openArenaFile());
    if (file_.get() == -1 || !lockFile(file_.get())) return;
    entered_ = true;
    // An exchange here and a release in the end (R): no store of the section leaves it, so whoever dies with one done
    // dies busy. Between holders the lock orders (P).
    if (arena().header().busy.exchangeSeqCst(1) != 0) repair(*this);
}

ColdSection::~ColdSection() {
    if (entered_) arena().header().busy.storeRelease(0);
}

uint32_t forkCount() {
    return forks.load(std::memory_order_relaxed);
}
uint32_t processGeneration() {
    return generation.load(std::memory_order_relaxed);
}

}  // namespace linx
