#include "models/machine/heap.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr size_t regionBytes = 16u << 20;
alignas(64) char region[regionBytes];
size_t used = 0;
bool fromRegion = false;

bool isInRegion(const void* memory) {
    const char* at = static_cast<const char*>(memory);
    return at >= region && at < region + regionBytes;
}

void* allocate(size_t bytes) {
    if (!fromRegion) {
        if (void* memory = std::malloc(bytes != 0 ? bytes : 1)) return memory;
        throw std::bad_alloc();
    }
    const size_t size = (bytes + 15) & ~size_t{15};
    if (size > regionBytes - used) throw std::bad_alloc();
    void* memory = region + used;
    used += size;
    return memory;
}

void release(void* memory) noexcept {
    if (!isInRegion(memory)) std::free(memory);  // the region is emptied as a whole
}

}  // namespace

void* operator new(size_t bytes) {
    return allocate(bytes);
}
void* operator new[](size_t bytes) {
    return allocate(bytes);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    release(memory);
}

namespace model {

HeapChoice::HeapChoice(bool world) : before_(fromRegion) {
    fromRegion = world;
}
HeapChoice::~HeapChoice() {
    fromRegion = before_;
}

void clearWorldHeap() {
    used = 0;
}
std::vector<char> copyOfWorldHeap() {
    return {region, region + used};
}
void restoreWorldHeap(const std::vector<char>& copy) {
    std::memcpy(region, copy.data(), copy.size());
    used = copy.size();
}

}  // namespace model
