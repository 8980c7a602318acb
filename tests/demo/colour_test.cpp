#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/demo/demonstration.h"

namespace {

/// Runs with $NO_COLOR as given, null for unset, and tells whether the output has colours.
bool hasColours(Demonstration::Output output, const char* noColor, std::vector<std::string> arguments = {}) {
    unsetenv("NO_COLOR");
    if (noColor != nullptr) setenv("NO_COLOR", noColor, 1);
    Demonstration run(std::move(arguments), output);
    EXPECT_EQ(run.finish(), 0) << run.text();
    return run.text().find("\033[") != std::string::npos;
}

TEST(Colour, IsUsedOnATerminal) {
    EXPECT_TRUE(hasColours(Demonstration::Output::terminal, nullptr));
}

TEST(Colour, IsNotUsedInAPipe) {
    EXPECT_FALSE(hasColours(Demonstration::Output::pipe, nullptr));
}

TEST(Colour, IsSwitchedOffByTheEnvironment) {
    EXPECT_FALSE(hasColours(Demonstration::Output::terminal, "1"));
}

TEST(Colour, AnEmptyVariableSwitchesNothingOff) {
    EXPECT_TRUE(hasColours(Demonstration::Output::terminal, ""));
}

TEST(Colour, IsSwitchedOffByAnOption) {
    EXPECT_FALSE(hasColours(Demonstration::Output::terminal, nullptr, {"--no-color"}));
}

}  // namespace
