#ifndef LINXIPC_TESTS_KIT_SMALL_ARENA_H
#define LINXIPC_TESTS_KIT_SMALL_ARENA_H

#include "tests/kit/domain.h"

namespace linxtest {

/// Four mebibytes, as small as a domain may be: what reads all of it is done soon, and two endpoints may have two
/// each. For a test to derive from, before what opens endpoints.
struct SmallArena {
    const ScopedVariable arenaMegabytes{"LINX_ARENA_MB", "4"};
};

}  // namespace linxtest

#endif
