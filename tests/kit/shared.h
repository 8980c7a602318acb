#ifndef LINXIPC_TESTS_KIT_SHARED_H
#define LINXIPC_TESTS_KIT_SHARED_H

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "tests/kit/in_time.h"

/// A count that one process raises and another watches.
class Count : public std::atomic<uint32_t> {
public:
    using std::atomic<uint32_t>::operator=;

    /// Waits until the count is `value` or more. False when that never happens.
    bool reaches(uint32_t value) const {
        return comesTrue([&] { return load() >= value; });
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
