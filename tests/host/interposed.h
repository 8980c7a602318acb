#ifndef LINXIPC_TESTS_HOST_INTERPOSED_H
#define LINXIPC_TESTS_HOST_INTERPOSED_H

#include <time.h>

#include <functional>

#include "tests/kit/file_memory.h"

/// What this program asks the kernel through the C library goes through here first: a test has something happen at
/// such a moment, or has it fail.
namespace linxtest::interposed {

/// Done instead of yielding.
extern std::function<void()> atYield;

/// Done before a look at the clock.
extern std::function<void()> atClock;

/// How far the clock is ahead, in seconds; and the coarse one besides.
extern time_t secondsAhead;
extern time_t coarseSecondsAhead;

/// Done before a file is opened below a directory; `name` is the one that was asked for.
extern std::function<void(const char* name)> atOpen;

/// Done before something is read from a file.
extern std::function<void()> atRead;

/// Done instead of sleeping for a while; also by itself.
extern std::function<void()> atNap;

/// Done before a file is locked or unlocked. Returns 0, or the errno value with which that fails.
extern std::function<int()> atLock;

/// Done before an open file is asked for its state. Returns 0, or the errno value with which that fails.
extern std::function<int()> atStat;

/// Done before something is added to an epoll set. Returns 0, or the errno value with which that fails.
extern std::function<int()> atWatch;

/// Done before a timer of the kernel is set.
extern std::function<void()> atArm;

/// Done before an epoll set is looked into, whether to wait or not.
extern std::function<void()> atLook;

/// Done before an epoll set is waited on in which there is nothing.
extern std::function<void()> atSleep;

/// Done before a part of a file is given memory. Returns 0, or the errno value with which that fails.
using linxtest::atReserve;

/// Has nothing happen any more, and the clock go on.
void reset();

/// Keeps the clock at one moment while it lives.
class StandingClock {
public:
    StandingClock();
    ~StandingClock();
    StandingClock(const StandingClock&) = delete;
    StandingClock& operator=(const StandingClock&) = delete;
};

}  // namespace linxtest::interposed

#endif
