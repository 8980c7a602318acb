// Puts pages that nobody may touch around every file that the host maps: whoever leaves the arena is told at once.
// Linked with --wrap=mmap, --wrap=mmap64 and --wrap=munmap.

#include <sys/mman.h>

#include <cstdint>
#include <map>
#include <mutex>

// Declared by their widths: where pointers have 32 bits the two differ in their last argument.
extern "C" {
void* __real_mmap64(void* address, size_t size, int protection, int flags, int file, int64_t offset);
int __real_munmap(void* address, size_t size);
void* __wrap_mmap(void* address, size_t size, int protection, int flags, int file, long offset);
void* __wrap_mmap64(void* address, size_t size, int protection, int flags, int file, int64_t offset);
int __wrap_munmap(void* address, size_t size);
}

namespace {

constexpr size_t guard = size_t{1} << 21;  // more than the largest block is long

std::mutex mutex;
std::map<void*, size_t> guarded;

}  // namespace

void* __wrap_mmap64(void* address, size_t size, int protection, int flags, int file, int64_t offset) {
    if (address != nullptr || file == -1) return __real_mmap64(address, size, protection, flags, file, offset);
    void* around = __real_mmap64(nullptr, size + 2 * guard, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (around == MAP_FAILED) return around;
    void* base = __real_mmap64(static_cast<char*>(around) + guard, size, protection, flags | MAP_FIXED, file, offset);
    const std::lock_guard<std::mutex> lock(mutex);
    guarded[base] = size;
    return base;
}

void* __wrap_mmap(void* address, size_t size, int protection, int flags, int file, long offset) {
    return __wrap_mmap64(address, size, protection, flags, file, offset);
}

int __wrap_munmap(void* address, size_t size) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (guarded.erase(address) == 0) return __real_munmap(address, size);
    }
    return __real_munmap(static_cast<char*>(address) - guard, size + 2 * guard);
}
