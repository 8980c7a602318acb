// How it is written: for terminals, for pipes, and whatever the names are.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/scene.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class OutputTest : public ProcessTest {
protected:
    void TearDown() override {
        peer.close();
        ProcessTest::TearDown();
    }

    Endpoint peer{"peer"};
};

bool hasColours(const Outcome& outcome) {
    return outcome.out.find('\033') != std::string::npos;
}

TEST_F(OutputTest, ColoursAreForTerminals) {
    const linxtest::ScopedVariable allowed("NO_COLOR", nullptr);
    EXPECT_TRUE(hasColours(runLinxOnTerminal({"list"})));
    EXPECT_FALSE(hasColours(runLinx({"list"})));
    EXPECT_FALSE(hasColours(runLinxOnTerminal({"list", "-j"})));
}

TEST_F(OutputTest, WhoWantsNoColoursGetsNone) {
    const linxtest::ScopedVariable forbidden("NO_COLOR", "1");
    EXPECT_FALSE(hasColours(runLinxOnTerminal({"list"})));
    const linxtest::ScopedVariable empty("NO_COLOR", "");
    EXPECT_TRUE(hasColours(runLinxOnTerminal({"list"})));
}

TEST_F(OutputTest, ColumnsAlign) {
    Endpoint other("a name that is longer than its title");
    const std::string out = runLinx({"list"}).out;
    const size_t column = out.find("SPID");
    for (size_t line = 0; line < out.size(); line = out.find('\n', line) + 1) {
        EXPECT_EQ(out.substr(line + column - 2, 2), "  ") << out;
        EXPECT_NE(' ', out[line + column]) << out;
    }
}

TEST_F(OutputTest, ATerminalGetsTheColumnsForWhichItHasRoom) {
    const linxtest::ScopedVariable plain("NO_COLOR", "1");
    const auto titlesAt = [](uint16_t columns) {
        const std::string out = runLinxOnTerminal({"list"}, columns).out;
        return squeezed(out.substr(0, out.find('\n')));
    };
    const std::string all = "NAME SPID PID PROCESS USER STATE QUEUED DEEPEST IN OUT HELD WAITS-FOR";
    EXPECT_EQ(all, titlesAt(0));
    EXPECT_EQ(all, titlesAt(200));
    EXPECT_THAT(titlesAt(80), AllOf(testing::StartsWith("NAME "), Not(HasSubstr("DEEPEST")), HasSubstr("WAITS-FOR")));
    EXPECT_EQ(titlesAt(20), "NAME PID STATE QUEUED IN OUT HELD WAITS-FOR") << "no less than that";
}

TEST_F(OutputTest, NamesCannotSteerTheTerminal) {
    Endpoint evil("\033[2Jevil\n\x7f\xc2\x9b");
    EXPECT_THAT(runLinx({"list"}).out, HasSubstr("\\x1b[2Jevil\\x0a\\x7f\\xc2\\x9b  "));
    EXPECT_THAT(runLinx({"send", "\033nobody", "1"}).err, HasSubstr("'\\x1bnobody'"));
}

TEST_F(OutputTest, NamesInUtf8AreShownAndOthersAreEscaped) {
    Endpoint german("T\xc3\xbcr");
    Endpoint broken("T\xfcr\xc0\xaf\xed\xa0\x80");
    const std::string out = runLinx({"list"}).out;
    EXPECT_THAT(out, HasSubstr("T\xc3\xbcr "));
    EXPECT_THAT(out, HasSubstr("T\\xfcr\\xc0\\xaf\\xed\\xa0\\x80 "));
    const nlohmann::json all = nlohmann::json::parse(runLinx({"list", "-j"}).out, nullptr, false);
    ASSERT_FALSE(all.is_discarded()) << "it is UTF-8 whatever the names are";
    EXPECT_EQ(all.size(), 3u);
}

TEST_F(OutputTest, AFullDiskIsToldAndAReaderThatHasLeftIsNot) {
    EXPECT_EQ(WEXITSTATUS(std::system(LINX_PROGRAM " list >/dev/full 2>/dev/null")), 1);
    EXPECT_EQ(statusWithoutReader({"list"}), 0);
}

TEST_F(OutputTest, HelpIsShownAndNothingElse) {
    const Outcome help = runLinx({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    for (const char* verb : {"list", "status", "holders", "doctor", "graph", "report", "completion", "links",
                             "monitor", "capture", "send", "call", "replay", "wait", "shutdown"}) {
        EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + verb + " "));
        EXPECT_EQ(runLinx({verb, "--help"}).status, 0) << verb;
    }
}

}  // namespace
