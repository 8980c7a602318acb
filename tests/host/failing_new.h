#ifndef LINXIPC_TESTS_HOST_FAILING_NEW_H
#define LINXIPC_TESTS_HOST_FAILING_NEW_H

namespace linxtest {

/// Set to n, it lets the n-th `new` of the thread from now on fail, and is 0 again from then on.
extern thread_local unsigned newThatFails;

}  // namespace linxtest

#endif
