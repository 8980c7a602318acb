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
    explicit Shared(std::size_t objects = 1) : size_(objects * sizeof(T)) {
        static_assert(std::is_trivially_destructible_v<T>);
        void* memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        check(memory != MAP_FAILED, "shared memory");
        first_ = static_cast<T*>(memory);
        for (std::size_t i = 0; i < objects; ++i) new (first_ + i) T();
    }
    ~Shared() { munmap(first_, size_); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T& operator*() const { return *first_; }
    T* operator->() const { return first_; }
    T& operator[](std::size_t index) const { return first_[index]; }

private:
    std::size_t size_;
    T* first_;
};

}  // namespace bench

#endif
