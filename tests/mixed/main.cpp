// Runs the tests in this program's word size, or in the other one, or plays a role for a test.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/mixed/support/role.h"

int main(int argc, char** argv) {
    if (argv[argc - 1] == std::string("--in-other-size")) {
        argv[argc - 1] = nullptr;
        continueInOtherSize(argv);
    }
    testing::InitGoogleTest(&argc, argv);
    if (argc == 5 && argv[1] == std::string("--role")) {
        return playRole(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
    }
    return RUN_ALL_TESTS();
}
