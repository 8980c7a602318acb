#ifndef LINXIPC_TESTS_CALLS_PERFORMANCE_H
#define LINXIPC_TESTS_CALLS_PERFORMANCE_H

#include "tests/calls/operations.h"
#include "tests/calls/tracer.h"

namespace calls {

/// What the victim shows to whoever watches it.
struct Display {
    std::atomic<bool> isForGood;  ///< what befalls it goes on until the operation has ended
    std::atomic<Window> window;
    std::atomic<uint32_t> parcels;  ///< sent to the bystanders, in the end
};

/// The victim's process, from its beginning to its end: prepares, does the operation, and then shows that it works
/// again, that it has lost nothing, and that nothing is left of it.
void perform(const scene::Operation& operation, scene::Progress& progress, Display& display, Line& parent);

}  // namespace calls

#endif
