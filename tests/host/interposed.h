#ifndef LINXIPC_TESTS_HOST_INTERPOSED_H
#define LINXIPC_TESTS_HOST_INTERPOSED_H

#include <cstdint>
#include <functional>

/// What this program asks the kernel through the C library goes through here first: a test has something happen at
/// such a moment, or has it fail.
namespace linxtest::interposed {

/// Done before a file is opened below a directory; `name` is the one that was asked for.
extern std::function<void(const char* name)> atOpen;

/// Done before something is read from a file.
extern std::function<void()> atRead;

/// Done instead of sleeping for a while; also by itself.
extern std::function<void()> atNap;

/// Done before a file is locked or unlocked. Returns 0, or the errno value with which that fails.
extern std::function<int()> atLock;

/// Done before a part of a file is given memory. Returns 0, or the errno value with which that fails.
extern std::function<int(int64_t offset, int64_t bytes)> atReserve;

/// Has nothing happen any more.
void reset();

}  // namespace linxtest::interposed

#endif
