#ifndef LINXIPC_TESTS_AMBUSH_AMBUSH_H
#define LINXIPC_TESTS_AMBUSH_AMBUSH_H

#include <cstdint>
#include <functional>

/// Lies in wait for whoever looks at shared memory: something can be done right before a certain look. Counts the
/// looks too, which must not be too many for one operation. Not for several threads.
namespace ambush {

extern uint32_t left;          ///< looks until something is done; 0 is never
extern uint64_t looksAllowed;  ///< in this operation

void spring();
[[noreturn]] void lookedTooOften();

inline void pass() {
    if (looksAllowed-- == 0) lookedTooOften();
    if (left != 0 && --left == 0) spring();
}

/// `action` is done before the `looks`th look from now on, counted from 1; 0 forgets it. It may lay the next ambush.
void lay(uint32_t looks, std::function<void()> action);

/// Forgets what was laid. Whether it lay there in vain.
bool lift();

/// An operation begins.
void begin();

}  // namespace ambush

#endif
