#include "tests/host/interposed.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <type_traits>
#include <utility>

namespace linxtest::interposed {

std::function<void(const char* name)> atOpen;
std::function<void()> atRead;
std::function<void()> atNap;
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
    atOpen = nullptr;
    atRead = nullptr;
    atNap = nullptr;
    atLock = nullptr;
    atReserve = nullptr;
}

}  // namespace linxtest::interposed

namespace interposed = linxtest::interposed;

extern "C" {

// This file counts in 64 bits, as the sources of host/ do: they call the functions for those.
int openat64(int directory, const char* name, int flags, ...) {
    const bool isNew = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = isNew ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    interposed::run(interposed::atOpen, name);
    return static_cast<int>(syscall(SYS_openat, directory, name, flags | O_LARGEFILE, mode));
}

ssize_t read(int file, void* bytes, size_t count) {
    interposed::run(interposed::atRead);
    return static_cast<ssize_t>(syscall(SYS_read, file, bytes, count));
}

int nanosleep(const timespec* time, timespec* left) {
    if (!interposed::atNap) return static_cast<int>(syscall(SYS_clock_nanosleep, CLOCK_REALTIME, 0, time, left));
    interposed::atNap();
    return 0;
}

int flock(int file, int operation) noexcept {
    const int error = interposed::run(interposed::atLock);
    return error != 0 ? interposed::fail(error) : static_cast<int>(syscall(SYS_flock, file, operation));
}

int posix_fallocate(int file, off_t offset, off_t bytes) {
    const int error = interposed::run(interposed::atReserve, int64_t{offset}, int64_t{bytes});
    if (error != 0) return error;
    const int keptErrno = errno;
    const int failure = fallocate(file, 0, offset, bytes) == 0 ? 0 : errno;
    errno = keptErrno;
    return failure;
}

}  // extern "C"
