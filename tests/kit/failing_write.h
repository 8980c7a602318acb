#ifndef LINXIPC_TESTS_KIT_FAILING_WRITE_H
#define LINXIPC_TESTS_KIT_FAILING_WRITE_H

namespace linxtest {

/// So many writes into pipes fail from now on, with this error. The program needs the `write` of failing_write.cpp.
inline unsigned writesThatFail = 0;
inline int failureOfWrites = 0;

/// While it lives, no pipe can be written into.
class FailingWrites {
public:
    explicit FailingWrites(int failure) {
        writesThatFail = ~0u;
        failureOfWrites = failure;
    }
    ~FailingWrites() { writesThatFail = 0; }
    FailingWrites(const FailingWrites&) = delete;
    FailingWrites& operator=(const FailingWrites&) = delete;
};

}  // namespace linxtest

#endif
