#include "interposed.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "platform/export.h"
#include "recording_platform.h"
#include "tests/support/failing_new.h"

namespace interposed {

bool refusesArrays = false;

namespace {

std::array<void*, 64> liveArrays{};
thread_local std::array<unsigned, 256> objectsBySize{};

/// Null, with errno set, when there is no memory or when a test wants none to be found.
void* Find(std::size_t size) {
    if (!linxtest::newFails()) return std::malloc(size != 0 ? size : 1);
    errno = ENOMEM;
    return nullptr;
}

void* Get(std::size_t size) {
    void* memory = Find(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void ReleaseArray(void* memory) {
    if (memory != nullptr) std::replace(liveArrays.begin(), liveArrays.end(), memory, static_cast<void*>(nullptr));
    std::free(memory);
}

}  // namespace

unsigned LiveArrays() {
    return static_cast<unsigned>(std::count_if(liveArrays.begin(), liveArrays.end(), [](void* a) { return a; }));
}

unsigned ObjectsMade(std::size_t size) {
    return std::exchange(objectsBySize.at(size), 0);
}

}  // namespace interposed

void* operator new(std::size_t size) {
    if (size < interposed::objectsBySize.size()) ++interposed::objectsBySize[size];
    return interposed::Get(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void* operator new[](std::size_t size) {
    return interposed::Get(size);
}
void operator delete[](void* memory) noexcept {
    interposed::ReleaseArray(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    interposed::ReleaseArray(memory);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (std::exchange(interposed::refusesArrays, false)) return nullptr;
    void* memory = interposed::Find(size);
    if (memory == nullptr) return nullptr;
    *std::find(interposed::liveArrays.begin(), interposed::liveArrays.end(), nullptr) = memory;
    return memory;
}

extern "C" {

LINXIPC_API int close(int number) {
    recording::Platform& platform = recording::Platform::Instance();
    const linxtest::UnfailingNew ours;
    if (!platform.OwnsDescriptor(number)) return static_cast<int>(syscall(SYS_close, number));
    platform.Note("close(" + std::to_string(number) + ")");
    return 0;
}

LINXIPC_API char* strerror(int number) noexcept {
    recording::Platform& platform = recording::Platform::Instance();
    ++platform.strerrorCalls;
    const linxtest::UnfailingNew ours;
    if (platform.strerrorGivesNull) return nullptr;
    static std::string text;
    text = "error " + std::to_string(number);
    return text.data();
}
}
