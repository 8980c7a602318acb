#ifndef LINXIPC_TESTS_BOUNDS_CLOCKS_H
#define LINXIPC_TESTS_BOUNDS_CLOCKS_H

#include <cstdint>

/// The clocks as this program sees them, product and test alike.
namespace clocks {

/// Sets the clock that tells the time of day so many seconds off, or the one that only goes forward.
void setTimeOfDayOff(int32_t seconds);
void setMonotonicOff(int32_t seconds);

/// How often somebody has asked for the time of day, or set a timer by it.
unsigned timesOfDayAsked();

}  // namespace clocks

#endif
