#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/demo/demonstration.h"

namespace {

class RefusedOption : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(RefusedOption, IsNamedAndNothingIsStarted) {
    Demonstration run(GetParam());
    EXPECT_NE(run.finish(), 0);
    EXPECT_NE(run.text().find(GetParam().front()), std::string::npos) << run.text();
    EXPECT_TRUE(run.domain().empty()) << run.text();
}

using Arguments = std::vector<std::string>;

INSTANTIATE_TEST_SUITE_P(Values, RefusedOption,
                         testing::Values(Arguments{"--rounds", "0"}, Arguments{"--rounds", "1001"},
                                         Arguments{"--rounds", "-1"}, Arguments{"--rounds", "two"},
                                         Arguments{"--rounds"}, Arguments{"--payload", "0"},
                                         Arguments{"--payload", "1048577"}, Arguments{"--payload", "4294967297"},
                                         Arguments{"--seed", "x"}, Arguments{"--seed", "-1"},
                                         Arguments{"--limit", "0"}, Arguments{"--limit", "3601"},
                                         Arguments{"--servers", "/nowhere"}, Arguments{"--nonsense"}));

TEST(Option, HelpNamesTheOptionsAndNothingInternal) {
    Demonstration run({"--help"});
    EXPECT_EQ(run.finish(), 0);
    for (const char* name :
         {"--rounds", "--payload", "--seed", "--limit", "--no-color", "--servers", "--list", "--help"}) {
        EXPECT_NE(run.text().find(name), std::string::npos) << name;
    }
    EXPECT_EQ(run.text().find("serve "), std::string::npos) << run.text();
    EXPECT_EQ(run.text().find("--front-panel"), std::string::npos) << run.text();
}

TEST(Option, ASlowMachineMayBeGivenAnHour) {
    Demonstration run({"--limit", "3600"});
    EXPECT_EQ(run.finish(), 0) << run.text();
}

TEST(Option, ListStartsNothing) {
    Demonstration run({"--list"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(run.domain().empty()) << run.text();
}

}  // namespace
