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
#include "testing/RecordingPlatform.h"
#include "tests/kit/failing_new.h"

using linx::testing::RecordingPlatform;

namespace interposed {

bool refusesArrays = false;
bool strerrorGivesNull = false;
unsigned strerrorCalls = 0;

namespace {

std::array<int, 4> recordedDescriptors{-1, -1, -1, -1};
std::array<void*, 64> arrays{};
thread_local std::array<unsigned, 256> objectsBySize{};

/// Null, with errno set, when there is no memory or when a test wants none to be found.
void* find(std::size_t size) {
    if (RecordingPlatform::atWork() || !linxtest::newFails()) return std::malloc(size != 0 ? size : 1);
    errno = ENOMEM;
    return nullptr;
}

void* get(std::size_t size) {
    void* memory = find(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void releaseArray(void* memory) {
    if (memory != nullptr) std::replace(arrays.begin(), arrays.end(), memory, static_cast<void*>(nullptr));
    std::free(memory);
}

}  // namespace

void reset() {
    refusesArrays = false;
    strerrorGivesNull = false;
    strerrorCalls = 0;
    recordedDescriptors.fill(-1);
}

void recordClosing(int descriptor) {
    *std::find(recordedDescriptors.begin(), recordedDescriptors.end(), -1) = descriptor;
}

unsigned liveArrays() {
    return static_cast<unsigned>(std::count_if(arrays.begin(), arrays.end(), [](void* a) { return a; }));
}

unsigned objectsMade(std::size_t size) {
    return std::exchange(objectsBySize.at(size), 0);
}

}  // namespace interposed

void* operator new(std::size_t size) {
    if (size < interposed::objectsBySize.size()) ++interposed::objectsBySize[size];
    return interposed::get(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void* operator new[](std::size_t size) {
    return interposed::get(size);
}
void operator delete[](void* memory) noexcept {
    interposed::releaseArray(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    interposed::releaseArray(memory);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (std::exchange(interposed::refusesArrays, false)) return nullptr;
    void* memory = interposed::find(size);
    if (memory == nullptr) return nullptr;
    *std::find(interposed::arrays.begin(), interposed::arrays.end(), nullptr) = memory;
    return memory;
}

extern "C" {

LINXIPC_API int close(int number) {
    const auto& recorded = interposed::recordedDescriptors;
    if (number < 0 || std::find(recorded.begin(), recorded.end(), number) == recorded.end()) {
        return static_cast<int>(syscall(SYS_close, number));
    }
    const linxtest::UnfailingNew ours;
    RecordingPlatform::instance().note("close(" + std::to_string(number) + ")");
    return 0;
}

LINXIPC_API char* strerror(int number) noexcept {
    ++interposed::strerrorCalls;
    const linxtest::UnfailingNew ours;
    if (interposed::strerrorGivesNull) return nullptr;
    static std::string text;
    text = "error " + std::to_string(number);
    return text.data();
}
}
