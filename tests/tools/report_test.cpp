// The page for a bug report: what is on it, and that it stays a page whatever names are.

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/tools/asker.h"
#include "tests/tools/drawer.h"
#include "tests/tools/scene.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string pageOf(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"report", "-o", "-"});
    const Outcome outcome = runLinx(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
}

/// What stands in a section of it.
std::string section(const std::string& page, const std::string& id) {
    const size_t begin = page.find("<section id=\"" + id + "\">");
    EXPECT_NE(begin, std::string::npos) << id;
    return begin == std::string::npos ? "" : page.substr(begin, page.find("</section>", begin) - begin);
}

size_t countOf(const std::string& part, const std::string& text) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

using ReportTest = SceneTest;

TEST_F(ReportTest, EverythingIsOnThePage) {
    const std::string page = pageOf();
    EXPECT_THAT(page, HasSubstr("<h1>Domain " + domain.path() + "</h1>"));
    EXPECT_THAT(section(page, "findings"), HasSubstr("<span class=\"bad\">hunt-pending</span> <b>server</b>"));
    EXPECT_THAT(section(page, "waits"), HasSubstr("Nobody waits"));
    EXPECT_THAT(section(page, "graph"), HasSubstr("<svg"));
    EXPECT_THAT(section(page, "graph"), HasSubstr("<td>client</td><td>server</td><td class=\"n\">4</td>"));
    EXPECT_THAT(section(page, "list"), HasSubstr("<td class=\"n\">" + std::to_string(server->pid()) + "</td>"));
    EXPECT_THAT(section(page, "queues"), HasSubstr("<td>server</td><td class=\"n\">200</td><td class=\"n\">2</td>"
                                                   "<td class=\"n\">128 B</td><td>client 2</td>"));
    EXPECT_THAT(section(page, "hunts"), HasSubstr("<td>server</td><td>absent</td>"));
    EXPECT_THAT(section(page, "holders"), HasSubstr("<td>server</td><td class=\"n\">4</td>"));
    EXPECT_THAT(section(page, "record"), HasSubstr("<td>received</td><td class=\"n\">100</td>"));
    const std::string machine = section(page, "machine");
    EXPECT_THAT(machine, HasSubstr("<dt>program</dt><dd>linx " LINXIPC_VERSION "</dd>"));
    EXPECT_THAT(machine, HasSubstr("<dt>endpoints</dt><dd>2 of at most 8191</dd>"));
    EXPECT_THAT(machine, HasSubstr("<dt>pending hunts</dt><dd>1 of at most 4096</dd>"));
}

TEST_F(ReportTest, TheDeadAreOnIt) {
    server->kill9();
    client->kill9();
    const std::string page = pageOf();
    EXPECT_EQ(countOf("<span class=\"bad\">dead</span>", page), 2u);
    EXPECT_EQ(countOf("<tr class=\"bad\">", section(page, "list")), 2u);
    EXPECT_THAT(section(page, "queues"), HasSubstr("<td>client 2</td>"));
    EXPECT_THAT(section(page, "record"), HasSubstr("<td>received</td><td class=\"n\">100</td>"));
    const std::string copy = pageOf({"--file", domain.pathOf("arena")});
    EXPECT_THAT(section(copy, "machine"), HasSubstr("the arena was looked at by itself"));
    EXPECT_EQ(section(copy, "queues"), section(page, "queues"));
}

TEST_F(ReportTest, ItIsWrittenToAFileOrNot) {
    const std::string file = domain.pathOf("page.html");
    EXPECT_EQ(runLinx({"report", "-o", file}), (Outcome{0, "", ""}));
    EXPECT_THAT(contentOf(file), testing::EndsWith("</body>\n</html>\n"));
    EXPECT_EQ(
        runLinx({"report", "-o", domain.pathOf("no/page.html")}),
        (Outcome{1, "",
                 "linx: " + domain.pathOf("no/page.html") + " cannot be written: No such file or directory\n"}));
    EXPECT_EQ(runLinx({"report", "-o", "/dev/full"}).status, 1);
    const std::string absent = domain.pathOf("absent.html");
    EXPECT_EQ(runLinx({"report", "-o", absent, "--domain", domain.pathOf("elsewhere")}).status, 5);
    EXPECT_FALSE(std::filesystem::exists(absent));
}

TEST_F(ReportTest, SoManyRowsAreOnItAsAreWanted) {
    const std::string page = pageOf({"-N", "1"});
    EXPECT_EQ(countOf("<tr>", section(page, "list")), 2u) << "with the titles";
    EXPECT_THAT(section(page, "list"), HasSubstr("The first 1 of 2: `linx list --all` shows all."));
    EXPECT_EQ(countOf("<tr>", section(page, "record")), 2u);
    EXPECT_THAT(section(page, "record"), HasSubstr("The last 1 of "));
}

TEST_F(ReportTest, GraphvizDrawsWhereItIs) {
    const Drawer drawer(
        "echo '<?xml version=\"1.0\"?><!DOCTYPE svg><svg width=\"70pt\"><g><title>n0</title><text>by "
        "hand</text></g></svg>'");
    EXPECT_THAT(section(pageOf(), "graph"),
                HasSubstr("<div class=\"graph\" style=\"--natural:70pt\">\n<svg width=\"70pt\"><g><text>by "
                          "hand</text></g></svg>\n"));
}

class CycleReportTest : public ProcessTest {};

TEST_F(CycleReportTest, CyclesStandOutAlsoWithoutGraphviz) {
    const Drawer none;
    const auto a = asker("a", 100), b = asker("b", 200);
    const LinxSpid spidA = a->hear(), spidB = b->hear();
    a->tell(spidB);
    b->tell(spidA);
    for (const auto* one : {&a, &b}) (*one)->awaitSleep();
    const std::string page = pageOf();
    EXPECT_THAT(section(page, "waits"), HasSubstr("<span class=\"bad\">cycle</span> <b>a -&gt; b -&gt; a</b>"));
    EXPECT_EQ(countOf("<tr class=\"bad\">", section(page, "waits")), 2u);
    EXPECT_EQ(countOf("<g class=\"edge waits cycle\">", page), 2u);
    EXPECT_THAT(page, HasSubstr("<g class=\"node waiting\"><title>a: waiting</title>"));
    for (const auto* one : {&a, &b}) (*one)->kill9();
}

/// Names that would like to be something else.
class HostileReportTest : public ProcessTest {
protected:
    HostileReportTest() {
        for (const Endpoint& one : evil) {
            EXPECT_EQ(send(one, spidOf(peer), 1), 0);
            EXPECT_EQ(linx_hunt(one, "</td><img src=x onerror='alert(1)'>", nullptr), 0);
        }
    }
    void TearDown() override {
        evil.clear();
        peer.close();
        ProcessTest::TearDown();
    }

    Endpoint peer{"peer"};
    std::vector<Endpoint> evil = [] {
        std::vector<Endpoint> all;
        for (const char* name : {"<script>alert(1)</script>", "\"'&amp;<!--", "new\nline\ttab\x7f", "]]></style>",
                                 "\xff\xfe", "\xef\xbf\xbf", "\xe2\x80\xaetxt.exe", "T\xc3\xbcr"}) {
            all.emplace_back(name);
        }
        all.emplace_back(std::string(255, 'W'));
        return all;
    }();
};

TEST_F(HostileReportTest, NamesStayText) {
    const Drawer none;
    const std::string page = pageOf();
    EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;"));
    EXPECT_THAT(page, HasSubstr("&quot;&#39;&amp;amp;&lt;!--"));
    EXPECT_THAT(page, HasSubstr("new\\x0aline\\x09tab\\x7f"));
    EXPECT_THAT(page, HasSubstr("\\xe2\\x80\\xaetxt.exe")) << "nor does it turn round what follows";
    EXPECT_THAT(page, HasSubstr("T\xc3\xbcr"));
    for (const char* tag : {"<script", "<img", "<!--", "]]>"}) EXPECT_THAT(page, Not(HasSubstr(tag)));
}

#ifdef PYTHON
int checkPage(const std::string& file) {
    const std::string command = PYTHON " -B " PAGE_CHECK " '" + file + "'";
    return WEXITSTATUS(std::system(command.c_str()));
}

TEST_F(HostileReportTest, ItIsWellFormedAndWantsNothingFromElsewhere) {
    const std::string file = domain.pathOf("page.html");
    {
        const Drawer none;
        ASSERT_EQ(runLinx({"report", "-o", file}).status, 0);
    }
    EXPECT_EQ(checkPage(file), 0);
    ASSERT_EQ(runLinx({"report", "-o", file}).status, 0) << "and with Graphviz, where it is";
    EXPECT_EQ(checkPage(file), 0);
}
#endif

}  // namespace
