#ifndef LINXIPC_TESTS_CALLS_OPERATIONS_H
#define LINXIPC_TESTS_CALLS_OPERATIONS_H

#include "tests/scene/operations.h"

namespace calls {

/// Those of the scene, and some in which the system calls matter more than the stores.
const std::vector<scene::Operation>& operations();

/// A directory in that of the stage, for a domain that an operation makes.
constexpr char newDomain[] = "new";

/// What an operation promises.
struct Promise {
    int (*act)(scene::Victim& victim);
    std::vector<int> errors;               ///< that it may answer
    void (*proof)(scene::Victim& victim);  ///< looks for what must follow from its success
    bool survives = false;                 ///< a child of the process is what something befalls
    bool canFailUnseen = false;            ///< where the kernel goes on to refuse, success proves nothing
};

/// Null when there is none for this operation.
const Promise* promiseOf(const scene::Operation& operation);

}  // namespace calls

#endif
