#ifndef LINXIPC_TESTS_CRASH_ATTEMPT_H
#define LINXIPC_TESTS_CRASH_ATTEMPT_H

#include <string>
#include <vector>

#include "tests/crash/site.h"
#include "tests/scene/operations.h"

namespace crash {

/// What came of an operation whose process ended at one place in it.
struct Outcome {
    uint32_t places = 0;  ///< in the whole operation, if it had fewer
    uint32_t leakedBlocks = 0;
    std::vector<std::string> complaints;
};

/// Has a process of its own end at the `site`th place of the operation, in a new domain with two bystanders at work,
/// and looks at what they and the arena say afterwards. One that stops is killed later, when they have gone on.
Outcome attempt(const scene::Operation& operation, uint32_t site, End how);

}  // namespace crash

#endif
