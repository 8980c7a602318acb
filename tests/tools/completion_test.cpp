// Words that the program proposes, and that shells put on the line.

#include <gmock/gmock.h>

#include "tests/tools/scene.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CompletionTest : public ProcessTest {
protected:
    CompletionTest() {
        for (const uint32_t number : {2000u, 2000u, 2010u}) EXPECT_EQ(send(client, spidOf(server), number), 0);
        EXPECT_EQ(send(server, spidOf(client), 2001), 0);
    }
    void TearDown() override {
        for (Endpoint* one : {&client, &server, &spaced, &colon, &quoted, &broken}) one->close();
        ProcessTest::TearDown();
    }

    static std::string proposed(std::vector<std::string> words) {
        words.insert(words.begin(), "__complete");
        const Outcome outcome = runLinx(words);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        return outcome.out;
    }

    /// What the commands print in a shell with the adaptor; none where the machine has no such shell.
    static std::string inShell(const std::string& shell, const std::string& commands) {
        const std::string program = shell == "fish" ? "fish --no-config" : shell == "zsh" ? "zsh -f" : "bash --norc";
        if (std::system(("command -v " + shell + " >/dev/null").c_str()) != 0) return "";
        // Under the name that the adaptors are for, wherever the program is.
        const std::string define = "linx() { " LINX_PROGRAM " \"$@\"; }\n";
        const std::string defineInFish = "function linx; " LINX_PROGRAM " $argv; end\n";
        const std::string script = (shell == "fish" ? defineInFish : define) + commands;
        FILE* const output = popen((program + " <<'END'\n" + script + "\nEND\n").c_str(), "r");
        std::string text;
        char bytes[4096];
        for (size_t count; (count = fread(bytes, 1, sizeof bytes, output)) > 0;) text.append(bytes, count);
        EXPECT_EQ(pclose(output), 0) << text;
        return text;
    }

    Endpoint client{"client"};
    Endpoint server{"server"};
    Endpoint spaced{"a name"};
    Endpoint colon{"x:y:z"};
    Endpoint quoted{"it's \"$HOME\" `id`;"};
    Endpoint broken{"new\nline"};
};

TEST_F(CompletionTest, VerbsAreProposedAndTheHiddenOneIsNot) {
    EXPECT_EQ(proposed({"wai"}),
              "words\n"
              "wait\twait until somebody opens under a name\n"
              "waits\tshow who waits for whom\n");
    EXPECT_THAT(proposed({}), HasSubstr("\nlist\t"));
    EXPECT_THAT(proposed({""}), Not(HasSubstr("__complete")));
    EXPECT_THAT(runLinx({"--help"}).out, Not(HasSubstr("__complete")));
    EXPECT_EQ(proposed({"no-such-verb", ""}), "words\n");
}

TEST_F(CompletionTest, OptionsAreThoseOfTheVerbAndOfTheProgram) {
    const std::string options = proposed({"wait", "-"});
    for (const char* option : {"--gone", "--domain", "--timeout", "-j", "-N", "--help"})
        EXPECT_THAT(options, HasSubstr(std::string("\n") + option + "\t"));
    EXPECT_THAT(options, Not(HasSubstr("--version")));
    EXPECT_THAT(options, Not(HasSubstr("--dot")));
    EXPECT_EQ(proposed({"graph", "--do"}),
              "words\n--domain\tthe domain, as $LINX_DOMAIN names one\n--dot\tas a graph for Graphviz\n");
    EXPECT_THAT(proposed({"send", "server", "1", "--u"}), HasSubstr("\n--u32\t"));
}

TEST_F(CompletionTest, NamesAreThoseOfWhoIsThereThatALineCanHave) {
    EXPECT_EQ(proposed({"status", ""}),
              "words\na name\tsleeping\nclient\trunning\nit's \"$HOME\" `id`;\tsleeping\nserver\trunning\n"
              "x:y:z\tsleeping\n");
    EXPECT_EQ(proposed({"-j", "send", "se"}), "words\nserver\trunning\n");
    EXPECT_EQ(proposed({"status", "server", ""}), "words\n") << "it takes one";
    EXPECT_EQ(proposed({"hz", "server", "cl"}), "words\nclient\trunning\n") << "it takes several";
    EXPECT_EQ(proposed({"monitor", "--from", "cl"}), "words\nclient\trunning\n");
    EXPECT_EQ(proposed({"monitor", "--from=cl"}), "words\n--from=client\trunning\n");
    EXPECT_EQ(proposed({"monitor", "--from", "x", "--", "cl"}), "words\nclient\trunning\n");
    client.close();
    EXPECT_EQ(proposed({"send", "cl"}), "words\n");
    EXPECT_EQ(proposed({"record", "cl"}), "words\nclient\tended\n");
}

TEST_F(CompletionTest, NumbersAreThoseThatWereSent) {
    EXPECT_EQ(proposed({"send", "server", ""}), "words\n2000\tsent 2 times\n2010\tsent 1 time\n");
    EXPECT_EQ(proposed({"call", "server", "2000", "--reply", ""}), "words\n2001\tsent 1 time\n");
    EXPECT_EQ(proposed({"call", "server", "--reply=20"}), "words\n--reply=2001\tsent 1 time\n");
    EXPECT_EQ(proposed({"send", "a name", "200"}), "words\n2000\tsent 2 times\n2001\tsent 1 time\n");
}

TEST_F(CompletionTest, FilesAndChoicesAreProposedWhereTheyMayStand) {
    EXPECT_EQ(proposed({"--file", ""}), "files\n");
    EXPECT_EQ(proposed({"send", "server", "1", "--file", ""}), "files\n");
    EXPECT_EQ(proposed({"report", "-o", ""}), "files\n");
    EXPECT_EQ(proposed({"completion", ""}), "words\nbash\nfish\nzsh\n");
    EXPECT_EQ(proposed({"wait", "server", "--timeout", ""}), "words\n");
}

TEST_F(CompletionTest, TheDomainIsTheOneOnTheLine) {
    EXPECT_EQ(proposed({"--domain", domain.pathOf("absent"), "status", ""}), "words\n");
    const linxtest::ScopedVariable elsewhere("LINX_DOMAIN", "/nowhere");
    EXPECT_EQ(proposed({"status", "se"}), "words\n");
    EXPECT_EQ(proposed({"status", "--domain", domain.path(), "se"}), "words\nserver\trunning\n");
    EXPECT_EQ(proposed({"status", "--file", domain.pathOf("arena"), "se"}), "words\nserver\trunning\n");
}

TEST_F(CompletionTest, BashPutsOnTheLineWhatTheProgramProposes) {
    const std::string text =
        inShell("bash",
                "eval \"$(linx completion bash)\"\n"
                "try() { COMP_LINE=$1 COMP_POINT=${#1}; _linx linx; printf '[%s]' \"${COMPREPLY[@]}\"; "
                "echo; }\n"
                "try 'linx wai'\n"
                "try 'linx status '\n"
                "try 'linx status a\\ n'\n"
                "try 'linx status x:y'\n"
                "try 'linx call server 2000 --reply=2'\n"
                "try 'linx send server 20'\n"
                "try 'linx no-such-verb '\n"
                "complete -p linx");
    if (text.empty()) GTEST_SKIP() << "there is no bash";
    EXPECT_EQ(text,
              "[wait][waits]\n"
              "[a\\ name][client][it\\'s\\ \\\"\\$HOME\\\"\\ \\`id\\`\\;][server][x:y:z]\n"
              "[a\\ name]\n"
              "[y:z]\n"
              "[2001]\n"
              "[2000][2010]\n"
              "[]\n"
              "complete -F _linx linx\n");
}

TEST_F(CompletionTest, ZshPutsOnTheLineWhatTheProgramProposes) {
    const std::string text = inShell("zsh",
                                     "compdef() { echo \"$@\"; }\n"
                                     "eval \"$(linx completion zsh)\"\n"
                                     "compadd() { print -rn -- \"[${(j:][:)candidates}]\" ${(j:|:)descriptions}; }\n"
                                     "_files() { echo files; }\n"
                                     "try() { words=(\"$@\") CURRENT=$#; _linx; echo; }\n"
                                     "try linx wai\n"
                                     "try linx status 'a\\ n'\n"
                                     "try linx status it\n"
                                     "try linx status x:\n"
                                     "try linx send server ''\n"
                                     "try linx --file ''");
    if (text.empty()) GTEST_SKIP() << "there is no zsh";
    EXPECT_EQ(text,
              "_linx linx\n"
              "[wait][waits] wait  -- wait until somebody opens under a name|waits  -- show who waits for whom\n"
              "[a name] a name  -- sleeping\n"
              "[it's \"$HOME\" `id`;] it's \"$HOME\" `id`;  -- sleeping\n"
              "[x:y:z] x:y:z  -- sleeping\n"
              "[2000][2010] 2000  -- sent 2 times|2010  -- sent 1 time\n"
              "files\n\n");
}

TEST_F(CompletionTest, FishPutsOnTheLineWhatTheProgramProposes) {
    const std::string text =
        inShell("fish",
                "linx completion fish | source\n"
                "for line in 'linx wai' 'linx status a\\\\ n' 'linx status x:' 'linx send server 20'\n"
                "complete -C $line\n"
                "end");
    if (text.empty()) GTEST_SKIP() << "there is no fish";
    EXPECT_EQ(text,
              "wait\twait until somebody opens under a name\n"
              "waits\tshow who waits for whom\n"
              "a name\tsleeping\n"
              "x:y:z\tsleeping\n"
              "2000\tsent 2 times\n"
              "2010\tsent 1 time\n");
}

}  // namespace
