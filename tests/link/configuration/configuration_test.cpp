#include "link/configuration/configuration.h"

#include <gmock/gmock.h>

namespace {

using namespace linx::link;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string someKey = "rq:rM>}U?@Lns47E1%kR.o@n%FcmmsL/@{H8]yf7";
const std::string otherKey = "Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID";

/// The problems as "LINE: TEXT".
std::vector<std::string> problemsOf(const std::string& text) {
    Problems problems;
    const bool isRight = parseConfiguration(text, "/etc/linx", problems).has_value();
    EXPECT_EQ(isRight, problems.empty());
    std::vector<std::string> lines;
    for (const Problem& problem : problems) lines.push_back(std::to_string(problem.line) + ": " + problem.text);
    return lines;
}

/// A configuration that is right but for a line of the whole, the fourth, and one of its link, the ninth.
std::string with(const std::string& line, const std::string& linkLine) {
    return "key = \"link.key\"\nlisten = \"tcp://127.0.0.1:7400\"\n\n" + line +
           "\n\n[[link]]\nname = \"toVp0\"\npeer = \"" + someKey + "\"\n" + linkLine + "\n";
}

}  // namespace

TEST(ConfigurationTest, AllThatMayStandInItIsRead) {
    Problems problems;
    const auto configuration = parseConfiguration(R"(
key = "link.key"
listen = "tcp://[::]:7400"
domain = "/dev/shm/linx.main"

[[link]]
name = "toVp0"
peer = ")" + someKey + R"("
connect = "tcp://10.0.0.2:7400"
export = ["StateMgr", "ts*"]
import = ["EncodeCtrl", "toVp2/X"]
transit = true
allow-control = true
tolerance = 30000

[[link]]
name = "toVp1"
peer = ")" + otherKey + "\"\n",
                                                  "/etc/linx", problems);
    ASSERT_TRUE(configuration) << problems.front().text;
    EXPECT_EQ(configuration->key, "/etc/linx/link.key");
    EXPECT_EQ(configuration->listen, "tcp://[::]:7400");
    EXPECT_EQ(configuration->domain, "/dev/shm/linx.main");
    ASSERT_EQ(configuration->links.size(), 2u);
    const LinkConfiguration& link = configuration->links[0];
    EXPECT_EQ(link.name, "toVp0");
    EXPECT_EQ(link.peer, someKey);
    EXPECT_EQ(link.connect, "tcp://10.0.0.2:7400");
    EXPECT_THAT(link.exports, ElementsAre("StateMgr", "ts*"));
    EXPECT_THAT(link.imports, ElementsAre("EncodeCtrl", "toVp2/X"));
    EXPECT_TRUE(link.transit);
    EXPECT_TRUE(link.allowControl);
    EXPECT_EQ(link.tolerance, 30000u);
    EXPECT_EQ(link.line, 6u);
}

TEST(ConfigurationTest, WhatIsLeftOutAllowsNothing) {
    Problems problems;
    const auto configuration = parseConfiguration(with("", ""), "/etc/linx", problems);
    ASSERT_TRUE(configuration);
    EXPECT_EQ(configuration->domain, "");
    const LinkConfiguration& link = configuration->links[0];
    EXPECT_EQ(link.connect, "");
    EXPECT_TRUE(link.exports.empty());
    EXPECT_TRUE(link.imports.empty());
    EXPECT_FALSE(link.transit);
    EXPECT_FALSE(link.allowControl);
    EXPECT_EQ(link.tolerance, 1500u);
}

TEST(ConfigurationTest, AKeyWithAWholePathIsFoundThere) {
    Problems problems;
    const std::string text = "key = \"/root/my.key\"\n" + with("", "").substr(with("", "").find('\n'));
    const auto configuration = parseConfiguration(text, "/etc/linx", problems);
    ASSERT_TRUE(configuration);
    EXPECT_EQ(configuration->key, "/root/my.key");
}

struct Mistake {
    const char* line;
    const char* linkLine;
    const char* problem;
};

class ConfigurationMistakeTest : public testing::TestWithParam<Mistake> {};

TEST_P(ConfigurationMistakeTest, IsToldWithItsLineAndWhatIsRight) {
    const Mistake& mistake = GetParam();
    EXPECT_THAT(problemsOf(with(mistake.line, mistake.linkLine)), ElementsAre(mistake.problem));
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, ConfigurationMistakeTest,
    testing::Values(
        Mistake{"domian = \"x\"", "", "4: the configuration has no \"domian\"; is \"domain\" meant?"},
        Mistake{"colour = 1", "", "4: the configuration has no \"colour\"; it has key, listen, domain, link"},
        Mistake{"domain = 5", "", "4: domain has to be text in quotes, such as: domain = \"/dev/shm/linx.main\""},
        Mistake{"domain = \"\"", "", "4: domain: \"\" is no path"},
        Mistake{"", "exports = [\"X\"]", "9: [[link]] has no \"exports\"; is \"export\" meant?"},
        Mistake{"", "allow_control = true", "9: [[link]] has no \"allow_control\"; is \"allow-control\" meant?"},
        Mistake{"", "export = \"X\"",
                "9: export has to be a list of texts, such as: export = [\"StateMgr\", \"ts*\"]"},
        Mistake{"", "export = [\"X\", 5]",
                "9: export has to be a list of texts, such as: export = [\"StateMgr\", \"ts*\"]"},
        Mistake{"", "export = [\"t*s\"]",
                "9: export: \"t*s\" has a star before its end; it has to be a NAME, or a PREFIX*"},
        Mistake{"", "export = [\n\"a\",\n\"\"]", "11: export: \"\" is empty: a name has 1 to 255 bytes"},
        Mistake{"", "import = [\"ts*\"]", "9: import: \"ts*\" has a star in it; what is imported is named in full"},
        Mistake{"", "transit = \"yes\"", "9: transit has to be true or false, without quotes"},
        Mistake{"", "allow-control = 1", "9: allow-control has to be true or false, without quotes"},
        Mistake{"", "tolerance = 99",
                "9: tolerance has to be a number of 100 to 30000, without quotes; left out it is 1500"},
        Mistake{"", "tolerance = \"1500\"",
                "9: tolerance has to be a number of 100 to 30000, without quotes; left out it is 1500"},
        Mistake{"", "connect = \"10.0.0.2:7400\"",
                "9: connect: \"10.0.0.2:7400\" has to be tcp://ADDRESS:PORT, such as \"tcp://10.0.0.2:7400\" or "
                "\"tcp://[fd00::2]:7400\""},
        Mistake{"", "connect = \"tcp://10.0.0.2\"",
                "9: connect: \"tcp://10.0.0.2\" has to be tcp://ADDRESS:PORT, such as \"tcp://10.0.0.2:7400\" or "
                "\"tcp://[fd00::2]:7400\""},
        Mistake{"", "connect = \"tcp://10.0.0.2:0\"",
                "9: connect: \"tcp://10.0.0.2:0\" has to be tcp://ADDRESS:PORT, such as \"tcp://10.0.0.2:7400\" or "
                "\"tcp://[fd00::2]:7400\", with a port of 1 to 65535"},
        Mistake{
            "", "connect = \"tcp://vp0.local:7400\"",
            "9: connect: \"tcp://vp0.local:7400\" has to be tcp://ADDRESS:PORT, such as \"tcp://10.0.0.2:7400\" or "
            "\"tcp://[fd00::2]:7400\"; the address in numbers, as no names are looked up"},
        Mistake{"", "connect = \"tcp://*:7400\"",
                "9: connect: \"tcp://*:7400\" has to be tcp://ADDRESS:PORT, such as \"tcp://10.0.0.2:7400\" or "
                "\"tcp://[fd00::2]:7400\"; the address in numbers, as no names are looked up"}));

TEST(ConfigurationProblemTest, WhatIsNotTomlIsToldWithItsLineToo) {
    EXPECT_THAT(problemsOf(with("x = y", "")),
                ElementsAre(AllOf(StartsWith("4: this is not TOML: "),
                                  EndsWith("; each line is KEY = VALUE, with texts in quotes, or [[link]]"))));
}

TEST(ConfigurationProblemTest, ALinkNeedsANameAndAPeer) {
    EXPECT_THAT(
        problemsOf("key = \"k\"\nlisten = \"tcp://*:7400\"\n[[link]]\n"),
        ElementsAre("3: [[link]] has no name; write such as: name = \"toVp0\"",
                    "3: [[link]] has no peer; write such as: peer = \"KEY\", with what \"linx-link keygen\" prints "
                    "over there"));
}

TEST(ConfigurationProblemTest, AnEmptyOneNeedsAKeyAndALink) {
    EXPECT_THAT(problemsOf(""), ElementsAre("0: there is no link; each begins with a line [[link]]",
                                            HasSubstr("has no key; write such as: key = \"link.key\"")));
}

TEST(ConfigurationProblemTest, WhereNothingListensEachLinkHasToDial) {
    EXPECT_THAT(problemsOf("key = \"k\"\n[[link]]\nname = \"a\"\npeer = \"" + someKey + "\"\n"),
                ElementsAre(HasSubstr("2: [[link]] has no connect, and nothing listens for its peer")));
}

TEST(ConfigurationProblemTest, TwoLinksShareNeitherNameNorPeer) {
    const std::string twin = "[[link]]\nname = \"toVp0\"\npeer = \"" + someKey + "\"\n";
    EXPECT_THAT(problemsOf(with("", twin)),
                ElementsAre("9: two links have the name \"toVp0\", this one and that of line 6",
                            "9: two links have the peer \"" + someKey + "\", this one and that of line 6"));
}

TEST(ConfigurationProblemTest, ALinkIsWrittenInTwoPairsOfBrackets) {
    EXPECT_THAT(problemsOf("key = \"k\"\n[link]\nname = \"a\"\n"),
                ElementsAre("2: each link has to be written [[link]], in two pairs of brackets"));
}

TEST(ConfigurationProblemTest, ALinkNameIsOneEndpoint) {
    for (const std::string name : {"to/Vp0", "/", ""}) {
        const std::string text =
            "key = \"k\"\nlisten = \"tcp://*:1\"\n[[link]]\nname = \"" + name + "\"\npeer = \"" + someKey + "\"\n";
        EXPECT_THAT(problemsOf(text), ElementsAre(HasSubstr("4: name: \"" + name + "\" "))) << name;
    }
}

TEST(ConfigurationProblemTest, AKeyHasFortyLettersOfItsAlphabetAndOneForm) {
    std::string tooLarge = someKey;
    tooLarge.replace(0, 5, "#####");  // more than four bytes hold
    for (const std::string& key :
         {std::string("abc"), someKey.substr(1), someKey + "0", tooLarge, std::string(40, '~')}) {
        const std::string text =
            "key = \"k\"\nlisten = \"tcp://*:1\"\n[[link]]\nname = \"a\"\npeer = \"" + key + "\"\n";
        EXPECT_THAT(problemsOf(text), ElementsAre(HasSubstr("is no public key"))) << key;
    }
}

TEST(ConfigurationProblemTest, AllProblemsAreToldInTheOrderOfTheirLines) {
    EXPECT_THAT(problemsOf(with("domain = 1", "transit = 2\ntolerance = 3")),
                ElementsAre(HasSubstr("4: domain"), HasSubstr("9: transit"), HasSubstr("10: tolerance")));
}
