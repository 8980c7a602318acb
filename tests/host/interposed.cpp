#include "tests/host/interposed.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <optional>
#include <type_traits>
#include <utility>

namespace linxtest::interposed {

std::function<void()> atYield;
std::function<void()> atClock;
time_t secondsAhead = 0;
time_t coarseSecondsAhead = 0;
std::function<void(const char* name)> atOpen;
std::function<void()> atRead;
std::function<void()> atNap;
std::function<int()> atLock;
std::function<int()> atStat;
std::function<int()> atWatch;
std::function<void()> atArm;
std::function<void()> atLook;
std::function<void()> atSleep;

namespace {

std::optional<timespec> standsAt;

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

int wait(int set, epoll_event* events, int most, int milliseconds) {
    constexpr size_t signalBytes = 8;  // of the kernel's set of POSIX signals; none is given
    return static_cast<int>(syscall(SYS_epoll_pwait, set, events, most, milliseconds, nullptr, signalBytes));
}

}  // namespace

void reset() {
    atYield = nullptr;
    atClock = nullptr;
    secondsAhead = coarseSecondsAhead = 0;
    atOpen = nullptr;
    atRead = nullptr;
    atNap = nullptr;
    atLock = nullptr;
    atStat = nullptr;
    atWatch = nullptr;
    atArm = nullptr;
    atLook = nullptr;
    atSleep = nullptr;
    atReserve = nullptr;
}

StandingClock::StandingClock() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    standsAt = now;
}
StandingClock::~StandingClock() {
    standsAt.reset();
}

}  // namespace linxtest::interposed

namespace interposed = linxtest::interposed;

extern "C" {

int sched_yield() noexcept {
    if (!interposed::atYield) return static_cast<int>(syscall(SYS_sched_yield));
    interposed::run(interposed::atYield);
    return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    interposed::run(interposed::atClock);
    int result = 0;
    if (interposed::standsAt) {
        *time = *interposed::standsAt;
    } else {
        result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    time->tv_sec += interposed::secondsAhead;
    if (clock == CLOCK_MONOTONIC_COARSE) time->tv_sec += interposed::coarseSecondsAhead;
    return result;
}

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

int fstat64(int file, struct stat64* status) noexcept {
    const int error = interposed::run(interposed::atStat);
    if (error != 0) return interposed::fail(error);
    return fstatat64(file, "", status, AT_EMPTY_PATH);
}

int epoll_ctl(int set, int operation, int descriptor, epoll_event* event) noexcept {
    const int error = operation == EPOLL_CTL_ADD ? interposed::run(interposed::atWatch) : 0;
    return error != 0 ? interposed::fail(error)
                      : static_cast<int>(syscall(SYS_epoll_ctl, set, operation, descriptor, event));
}

int timerfd_settime(int timer, int flags, const itimerspec* when, itimerspec* before) noexcept {
    interposed::run(interposed::atArm);
    return static_cast<int>(syscall(SYS_timerfd_settime, timer, flags, when, before));
}

int epoll_wait(int set, epoll_event* events, int most, int milliseconds) {
    interposed::run(interposed::atLook);
    if (interposed::atSleep && milliseconds != 0) {
        const int ready = interposed::wait(set, events, most, 0);
        if (ready != 0) return ready;
        interposed::run(interposed::atSleep);
    }
    return interposed::wait(set, events, most, milliseconds);
}

}  // extern "C"
