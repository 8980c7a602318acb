#ifndef LINXIPC_TESTS_KIT_PIPE_WRITES_H
#define LINXIPC_TESTS_KIT_PIPE_WRITES_H

#include <cstddef>
#include <functional>

namespace linxtest {

/// Done before something is written into a pipe, which doorbells are. Returns 0, or the errno value with which that
/// fails. The program needs the `write` of pipe_writes.cpp.
inline std::function<int(const void* data, size_t size)> atPipeWrite;

/// While it lives, no pipe can be written into.
class FailingWrites {
public:
    explicit FailingWrites(int failure) {
        atPipeWrite = [failure](const void*, size_t) { return failure; };
    }
    ~FailingWrites() { atPipeWrite = nullptr; }
    FailingWrites(const FailingWrites&) = delete;
    FailingWrites& operator=(const FailingWrites&) = delete;
};

}  // namespace linxtest

#endif
