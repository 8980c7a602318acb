#ifndef LINXIPC_TESTS_KIT_ROLE_TEST_H
#define LINXIPC_TESTS_KIT_ROLE_TEST_H

#include "tests/kit/role.h"
#include "tests/kit/side.h"
#include "tests/kit/whole_arena_test.h"

/// A test whose other side may be behind a link. Where there are links, they live for as long as the test.
class RoleTest : public WholeArenaTest {
protected:
    void SetUp() override {
        WholeArenaTest::SetUp();
        if (OtherSide::make != nullptr) otherSide_ = OtherSide::make(domain.path());
    }
    void TearDown() override {
        otherSide_.reset();
        WholeArenaTest::TearDown();
    }

private:
    std::unique_ptr<OtherSide> otherSide_;
};

#endif
