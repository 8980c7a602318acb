#ifndef LINXIPC_TESTS_KIT_DOMAIN_TEST_H
#define LINXIPC_TESTS_KIT_DOMAIN_TEST_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/kit/domain.h"

/// A test with a domain of its own, which ends without a process left and with no more descriptors open than at
/// first. The killed may leave their doorbells: nobody has to notice them.
class ProcessTest : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process was left behind";
        EXPECT_EQ(linxtest::TestDomain::openFileCount(), openFilesBefore_);
    }

    const linxtest::TestDomain domain;

private:
    const size_t openFilesBefore_ = linxtest::TestDomain::openFileCount();
};

namespace linxtest {

/// The same where nobody is killed without being noticed, so that no doorbells are left either.
class DomainTest : public ProcessTest {
protected:
    void TearDown() override {
        EXPECT_EQ(domain.leftovers(), std::vector<std::string>());
        ProcessTest::TearDown();
    }
};

}  // namespace linxtest

#endif
