#ifndef LINXIPC_TESTS_SCENE_OPERATIONS_H
#define LINXIPC_TESTS_SCENE_OPERATIONS_H

#include <vector>

#include "tests/scene/acts.h"

namespace scene {

/// Who has died before the victim acts, and has not been cleared up after.
enum class Corpse {
    none,
    atRest,      ///< had an endpoint
    holdingLock  ///< the same, and was opening another
};

/// Who captures what is sent.
enum class Capture {
    none,
    running,   ///< somebody who reads it once the victim has ended
    abandoned  ///< somebody did who has died
};

/// One thing that an endpoint does.
struct Operation {
    const char* name;
    Stance stance;
    const char* looking;  ///< for how many microseconds receivers spin before they sleep
    bool opens;           ///< the victim is not open before
    Corpse corpse;
    void (*prepare)(Victim& victim);
    int (*act)(Victim& victim);
    int result = 0;  ///< of `act`, when nothing befalls it
    Capture capture = Capture::none;
};

extern const std::vector<Operation> operations;

}  // namespace scene

#endif
