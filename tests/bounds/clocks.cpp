// Stands in for what the C library asks the kernel.

#include "tests/bounds/clocks.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<int32_t> timeOfDayOff{0};
std::atomic<int32_t> monotonicOff{0};
std::atomic<unsigned> asked{0};

bool isMonotonic(clockid_t clock) {
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE;
}

void shift(timespec& time, int32_t seconds) {
    time.tv_sec += static_cast<time_t>(seconds);
}

}  // namespace

namespace clocks {

void setTimeOfDayOff(int32_t seconds) {
    timeOfDayOff = seconds;
}
void setMonotonicOff(int32_t seconds) {
    monotonicOff = seconds;
}
unsigned timesOfDayAsked() {
    return asked;
}

}  // namespace clocks

extern "C" {

[[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (!isMonotonic(clock)) ++asked;
    if (result == 0) shift(*time, isMonotonic(clock) ? monotonicOff : timeOfDayOff);
    return result;
}
[[gnu::visibility("default")]] int gettimeofday(timeval* __restrict time, void* __restrict) noexcept {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec, static_cast<suseconds_t>(now.tv_nsec / 1000)};
    return 0;
}
[[gnu::visibility("default")]] time_t time(time_t* where) noexcept {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (where != nullptr) *where = now.tv_sec;
    return now.tv_sec;
}
[[gnu::visibility("default")]] int timerfd_create(clockid_t clock, int flags) noexcept {
    if (!isMonotonic(clock)) ++asked;
    return static_cast<int>(syscall(SYS_timerfd_create, clock, flags));
}
/// The kernel's clock is off as the program sees it, too.
[[gnu::visibility("default")]] int timerfd_settime(int timer, int flags, const itimerspec* when,
                                                   itimerspec* before) noexcept {
    itimerspec shifted = *when;
    const bool isSet = when->it_value.tv_sec != 0 || when->it_value.tv_nsec != 0;
    if (isSet && (flags & TFD_TIMER_ABSTIME) != 0) {
        shift(shifted.it_value, -monotonicOff);
        if (shifted.it_value.tv_sec < 0) shifted.it_value = {0, 1};
    }
    return static_cast<int>(syscall(SYS_timerfd_settime, timer, flags, &shifted, before));
}

}  // extern "C"
