#ifndef LINXIPC_TESTS_HOST_INTERPOSED_H
#define LINXIPC_TESTS_HOST_INTERPOSED_H

#include <cstdint>
#include <functional>

/// What this program asks the kernel through the C library goes through here first: a test has something happen at
/// such a moment, or has it fail.
namespace linxtest::interposed {

/// Done before a file is locked or unlocked. Returns 0, or the errno value with which that fails.
extern std::function<int()> atLock;

/// Done before a part of a file is given memory. Returns 0, or the errno value with which that fails.
extern std::function<int(int64_t offset, int64_t bytes)> atReserve;

/// Has nothing happen any more.
void reset();

}  // namespace linxtest::interposed

#endif
