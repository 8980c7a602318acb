#ifndef LINXIPC_TESTS_PROCESSES_SUPPORT_SHARED_H
#define LINXIPC_TESTS_PROCESSES_SUPPORT_SHARED_H

#include <sched.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "tests/processes/support/line.h"

/// A count that one process raises and another watches.
class Count : public std::atomic<uint32_t> {
public:
    using std::atomic<uint32_t>::operator=;

    /// Waits until the count is `value` or more. False when that never happens.
    bool reaches(uint32_t value) const {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
        while (load() < value) {
            if (std::chrono::steady_clock::now() > limit) return false;
            sched_yield();
        }
        return true;
    }
};

/// How far the processes of a test have come, and whether they may end.
struct Counters {
    Count steps;
    Count progress;
    std::atomic<bool> finish;
};

/// An object that this process and its future children share, zero at first.
template <class T>
class Shared {
public:
    Shared() {
        void* memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        object_ = new (memory) T{};
    }
    ~Shared() { munmap(object_, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }

private:
    T* object_;
};

#endif
