// In a file of its own: a compiler that sees both ends of an allocation takes the replaced ones for a mismatch.

#include "tests/host/failing_new.h"

#include <cstdlib>
#include <new>

namespace linxtest {

thread_local bool nextNewFails = false;

}  // namespace linxtest

void* operator new(std::size_t size) {
    void* memory = linxtest::nextNewFails ? nullptr : std::malloc(size != 0 ? size : 1);
    linxtest::nextNewFails = false;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
// With it, since what a sanitizer would allocate here could not be freed below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
