#include "tests/host/interposed.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace linxtest::interposed {

std::function<int()> atLock;
std::function<int(int64_t offset, int64_t bytes)> atReserve;

namespace {

/// Not again for what it does itself.
template <class Result, class... Arguments>
Result run(std::function<Result(Arguments...)>& what, Arguments... arguments) {
    if (!what) return Result();
    std::function<Result(Arguments...)> running = std::exchange(what, nullptr);
    if constexpr (std::is_void_v<Result>) {
        running(arguments...);
        what = std::move(running);
    } else {
        const Result result = running(arguments...);
        what = std::move(running);
        return result;
    }
}

int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

void reset() {
    atLock = nullptr;
    atReserve = nullptr;
}

}  // namespace linxtest::interposed

namespace interposed = linxtest::interposed;

extern "C" {

int flock(int file, int operation) noexcept {
    const int error = interposed::run(interposed::atLock);
    return error != 0 ? interposed::fail(error) : static_cast<int>(syscall(SYS_flock, file, operation));
}

// This file counts in 64 bits, as the sources of host/ do.
int posix_fallocate(int file, off_t offset, off_t bytes) {
    const int error = interposed::run(interposed::atReserve, int64_t{offset}, int64_t{bytes});
    if (error != 0) return error;
    const int keptErrno = errno;
    const int failure = fallocate(file, 0, offset, bytes) == 0 ? 0 : errno;
    errno = keptErrno;
    return failure;
}

}  // extern "C"
