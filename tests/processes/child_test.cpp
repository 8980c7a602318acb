// The processes of these tests themselves: what fails in one must not be lost.

#include "tests/kit/child.h"

#include <gtest/gtest-spi.h>

#include "tests/kit/domain_test.h"

namespace {

using AChild = ProcessTest;

TEST_F(AChild, TellsWhatFailedInItThoughItIsKilled) {
    Child child([](Line& parent) {
        ADD_FAILURE() << "the first";
        ADD_FAILURE() << "the second";
        parent.tell();
        parent.hear();
    });
    child.hear();
    EXPECT_NONFATAL_FAILURE(child.kill9(), "the second");
}

TEST_F(AChild, TellsItOnceThoughItIsTheChildOfAnother) {
    Child child([](Line&) {
        Child grandchild([](Line& parent) {
            ADD_FAILURE() << "the only one";
            parent.tell();
            parent.hear();
        });
        grandchild.hear();
    });
    int status = 0;
    EXPECT_NONFATAL_FAILURE(status = child.exitStatus(), "the only one");
    EXPECT_EQ(status, 1);
}

}  // namespace
