#ifndef LINXIPC_TESTS_HOST_FAILING_NEW_H
#define LINXIPC_TESTS_HOST_FAILING_NEW_H

namespace linxtest {

/// Set, it lets the next `new` of the thread fail, which sets it back.
extern thread_local bool nextNewFails;

}  // namespace linxtest

#endif
