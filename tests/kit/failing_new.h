#ifndef LINXIPC_TESTS_KIT_FAILING_NEW_H
#define LINXIPC_TESTS_KIT_FAILING_NEW_H

#include <utility>

namespace linxtest {

/// Set to n, it lets the n-th `new` of the thread from now on fail, and is 0 again from then on. The program needs
/// the operators of failing_new.cpp, or some of its own that ask `newFails`.
inline thread_local unsigned newThatFails = 0;

/// While it is set, each `new` of the thread fails.
inline thread_local bool everyNewFails = false;

/// Asked by each `new`: whether it is the one.
inline bool newFails() {
    return everyNewFails || (newThatFails != 0 && --newThatFails == 0);
}

/// For what belongs to the test and runs inside of what is tested: its own `new` does not fail, and is not counted.
class UnfailingNew {
public:
    UnfailingNew() = default;
    ~UnfailingNew() { newThatFails = suspended_; }
    UnfailingNew(const UnfailingNew&) = delete;
    UnfailingNew& operator=(const UnfailingNew&) = delete;

private:
    const unsigned suspended_ = std::exchange(newThatFails, 0);
};

}  // namespace linxtest

#endif
