#ifndef LINXIPC_TESTS_CALLS_KNOWN_CALLS_H
#define LINXIPC_TESTS_CALLS_KNOWN_CALLS_H

#include <string>
#include <vector>

#include "tests/calls/tracer.h"

namespace calls {

/// A system call that operations make, and the errors with which an honest kernel may answer it though nobody has
/// done anything wrong.
struct KnownCall {
    uint64_t number;
    const char* name;
    bool (*isIt)(const Call& call);  ///< by its arguments; null: any of this number
    std::vector<int> errors;

    bool mayAnswer(int error) const;

    /// Whether the kernel has done what was wanted though it answers an error.
    bool isDoneNevertheless() const;

    /// Whether a file is left when the call fails.
    bool isRemoval() const;

    /// Whether the call makes a process, and never comes back as the one that it was.
    bool isFork() const;

    /// Whether nothing comes after the call.
    bool isLast() const;

    /// Whether the call is made as often as there is time.
    bool isIdle() const;
};

/// Null when the table has no such line.
const KnownCall* lineOf(const Call& call);
const KnownCall* lineNamed(const std::string& name);

}  // namespace calls

#endif
