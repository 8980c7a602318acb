#ifndef LINXIPC_TESTS_KIT_WHOLE_ARENA_TEST_H
#define LINXIPC_TESTS_KIT_WHOLE_ARENA_TEST_H

#include <memory>

#include "host/arena/domain.h"
#include "tests/kit/arena_order.h"
#include "tests/kit/domain_test.h"

/// A test at whose end all words of the arena must be in order, as this process reads them.
class WholeArenaTest : public ProcessTest {
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
        ASSERT_NE(joined, nullptr);
        const linx::debug::Census census = linxtest::lookInto(*joined).census;
        EXPECT_LT(0u, census.blocks);
        EXPECT_EQ(census.blocks, census.central);
    }
};

#endif
