// Runs the tests in this program's word size, has the program of the other one run them, or plays a role for a test.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/kit/role.h"

int main(int argc, char** argv) {
    if (argc > 2 && argv[argc - 2] == std::string("--run-by")) {
        const char* const program = argv[argc - 1];
        argv[argc - 2] = nullptr;
        execv(program, argv);
        std::perror(program);
        return 2;
    }
    testing::InitGoogleTest(&argc, argv);
    if (argc == 5 && argv[1] == std::string("--role")) {
        return playRole(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
    }
    return RUN_ALL_TESTS();
}
