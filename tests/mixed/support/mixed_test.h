#ifndef LINXIPC_TESTS_MIXED_SUPPORT_MIXED_TEST_H
#define LINXIPC_TESTS_MIXED_SUPPORT_MIXED_TEST_H

#include <memory>
#include <string>
#include <vector>

#include "host/arena/domain.h"
#include "tests/mixed/support/role.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"
#include "tests/support/broken_invariant.h"

/// A test whose processes are of both sizes. At its end all words of the arena must be in order for this size.
class MixedTest : public ProcessTest {
protected:
    void TearDown() override {
        if (const auto joined = linx::Domain::join()) {
            EXPECT_EQ(linxtest::brokenInvariant(*joined), "");
        } else {
            ADD_FAILURE() << "the domain cannot be joined";
        }
        ProcessTest::TearDown();
    }

    /// Expects that every block is back in the central lists. REQUIRES that no endpoint is open, and that the dead
    /// have been noticed.
    static void expectWholePool() {
        const std::shared_ptr<linx::Domain> joined = linx::Domain::join();
        ASSERT_NE(nullptr, joined);
        const linx::debug::Census census = linxtest::lookInto(*joined).census;
        EXPECT_LT(0u, census.blocks);
        EXPECT_EQ(census.blocks, census.central);
    }
};

#endif
