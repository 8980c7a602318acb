#ifndef LINXIPC_TESTS_CALLS_ATTEMPT_H
#define LINXIPC_TESTS_CALLS_ATTEMPT_H

#include <string>
#include <vector>

#include "tests/calls/fault.h"
#include "tests/calls/operations.h"

namespace calls {

/// What came of an operation that a fault befell.
struct Outcome {
    std::vector<const KnownCall*> calls;  ///< that it has made
    bool reached = false;                 ///< the site of the fault
    std::vector<std::string> complaints;
};

/// Has a process of its own do the operation, in a new domain with two bystanders at work, and the fault befall it.
/// Those who live on must go on, the process itself included, and leave everything in order.
Outcome attempt(const scene::Operation& operation, const Fault& fault);

}  // namespace calls

#endif
