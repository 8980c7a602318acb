#ifndef LINXIPC_BENCH_HARNESS_SHARED_H
#define LINXIPC_BENCH_HARNESS_SHARED_H

#include <sys/mman.h>

#include <new>
#include <type_traits>

#include "bench/harness/check.h"

namespace bench {

/// `count` objects, zeroed, in memory that the processes forked later share.
template <class T>
class Shared {
public:
    explicit Shared(std::size_t objects = 1) : size(objects * sizeof(T)) {
        static_assert(std::is_trivially_destructible_v<T>);
        void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        Check(memory != MAP_FAILED, "shared memory");
        first = static_cast<T*>(memory);
        for (std::size_t i = 0; i < objects; ++i) new (first + i) T();
    }
    ~Shared() { munmap(first, size); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T& operator*() const { return *first; }
    T* operator->() const { return first; }
    T& operator[](std::size_t index) const { return first[index]; }

private:
    std::size_t size;
    T* first;
};

}  // namespace bench

#endif
