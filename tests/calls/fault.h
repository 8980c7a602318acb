#ifndef LINXIPC_TESTS_CALLS_FAULT_H
#define LINXIPC_TESTS_CALLS_FAULT_H

#include "tests/calls/known_calls.h"

namespace calls {

/// One of the system calls that an operation makes.
struct Site {
    const KnownCall* call = nullptr;
    uint32_t nth = 0;  ///< of these, counted from 1
};

/// What befalls the process there.
enum class Deed {
    nothing,
    killBefore,
    killAfter,
    stopBefore,  ///< and it is killed when the others have gone on
    stopAfter,
    pauseBefore,  ///< and it goes on when the others have gone on
    pauseAfter,
    delay,  ///< before and after, for a moment
    fail,
    failOn  ///< from there on, with each call that may answer this error
};

struct Fault {
    Deed deed = Deed::nothing;
    Site site;
    int error = 0;

    bool kills() const;
    bool stops() const;
};

}  // namespace calls

#endif
