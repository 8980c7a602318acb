// Who sent to whom and waits for whom, as the program draws it.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/asker.h"
#include "tests/tools/drawer.h"
#include "tests/tools/scene.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Json graphOf(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"graph", "-j"});
    const Outcome outcome = runLinx(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome;
    return Json::parse(outcome.out, nullptr, false);
}

using GraphTest = SceneTest;

TEST_F(GraphTest, TheKeysOfItsJsonAreThoseThatScriptsRelyOn) {
    const Json graph = graphOf();
    EXPECT_EQ(graph["nodes"],
              (Json{{{"name", "client"}, {"state", "sleeping"}}, {{"name", "server"}, {"state", "running"}}}));
    ASSERT_EQ(graph["edges"].size(), 1u) << graph;
    EXPECT_EQ(graph["edges"][0], (Json{{"kind", "sent"},
                                       {"from", "client"},
                                       {"to", "server"},
                                       {"signals", 4},
                                       {"bytes", 1004 + 12 + 12 + 5004},
                                       {"per_second", nullptr},
                                       {"numbers",
                                        {{{"number", 100}, {"signals", 1}, {"bytes", 1004}},
                                         {{"number", 200}, {"signals", 2}, {"bytes", 24}},
                                         {{"number", 300}, {"signals", 1}, {"bytes", 5004}}}}}));
}

TEST_F(GraphTest, GraphvizGetsNodesAndEdges) {
    EXPECT_EQ(runLinx({"graph", "--dot"}),
              (Outcome{0,
                       "digraph linx {\n"
                       "    bgcolor=transparent;\n"
                       "    node [shape=box, style=rounded, fontname=\"sans-serif\", fontsize=12];\n"
                       "    edge [fontname=\"sans-serif\", fontsize=10];\n"
                       "    n0 [label=\"client\", tooltip=\"client: sleeping\", class=\"sleeping\"];\n"
                       "    n1 [label=\"server\", tooltip=\"server: running\", class=\"running\"];\n"
                       "    n0 -> n1 [label=\"200 (2)\\n100 (1)\\n300 (1)\", penwidth=1, class=\"sent\", "
                       "tooltip=\"client -> server\"];\n"
                       "}\n",
                       ""}));
}

TEST_F(GraphTest, ItIsTheSameWhenAllHaveBeenKilled) {
    const Json before = graphOf();
    server->kill9();
    client->kill9();
    const Json after = graphOf();
    EXPECT_EQ(after["edges"], before["edges"]);
    EXPECT_EQ(after["nodes"][0]["state"], "dead");
    EXPECT_EQ(graphOf({"--file", domain.pathOf("arena")})["edges"], before["edges"]);
}

TEST_F(GraphTest, NamesLeaveOutTheOthers) {
    Endpoint stranger("stranger"), other("other");
    ASSERT_EQ(send(stranger, spidOf(other), 5), 0);
    expectSignal(other, 5);
    EXPECT_EQ(graphOf()["edges"].size(), 2u);
    const Json graph = graphOf({"other"});
    ASSERT_EQ(graph["edges"].size(), 1u);
    EXPECT_EQ(graph["edges"][0]["from"], "stranger");
    EXPECT_EQ(graph["nodes"].size(), 2u);
    EXPECT_EQ(graphOf({"-N", "1"})["edges"][0]["from"], "client") << "the busiest stay";
    EXPECT_EQ(graphOf({"-N", "1"})["nodes"].size(), 2u);
    EXPECT_EQ(runLinx({"graph", "nobody"}).status, 3);
}

TEST_F(GraphTest, GraphvizDraws) {
    const Drawer drawer("while read -r line; do first=${first:-$line}; done; echo \"<svg>$first</svg>\"");
    EXPECT_EQ(runLinx({"graph"}), (Outcome{0, "<svg>digraph linx {</svg>\n\n", ""}));
}

TEST_F(GraphTest, WithoutGraphvizItSaysSo) {
    const Drawer none;
    EXPECT_EQ(runLinx({"graph"}),
              (Outcome{1, "",
                       "linx: Graphviz, whose program `dot` draws graphs, is not installed; --dot "
                       "prints what it would draw\n"}));
}

TEST_F(GraphTest, AGraphvizThatFailsOrTakesTooLongIsTold) {
    const char* failed = "linx: Graphviz's `dot` has failed; --dot prints what it would draw\n";
    {
        const Drawer drawer("echo '<svg>'; exit 3");
        EXPECT_EQ(runLinx({"graph"}), (Outcome{1, "", failed}));
    }
    {
        const Drawer drawer("echo 'no drawing'");
        EXPECT_EQ(runLinx({"graph"}), (Outcome{1, "", failed}));
    }
    const Drawer drawer("while :; do :; done");
    const Outcome outcome = runLinx({"graph", "--timeout", "20ms"});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.err, StartsWith("linx: Graphviz's `dot` has not drawn the graph in time"));
}

class WaitingGraphTest : public ProcessTest {};

TEST_F(WaitingGraphTest, WaitsAreDashedAndCyclesRed) {
    const auto a = asker("a", 100), b = asker("b", 200), c = asker("c", 300);
    const LinxSpid spidA = a->hear(), spidB = b->hear();
    c->hear();
    a->tell(spidB);
    b->tell(spidA);
    c->tell(spidA);
    for (const auto* one : {&a, &b, &c}) (*one)->awaitSleep();
    std::map<std::string, Json> waits;
    const Json graph = graphOf();
    for (const Json& edge : graph["edges"]) {
        if (edge["kind"] == "waits") waits[edge["from"]] = edge;
    }
    ASSERT_EQ(waits.size(), 3u);
    EXPECT_EQ(waits["c"].size(), 7u);
    EXPECT_EQ(waits["c"]["to"], "a");
    EXPECT_EQ(waits["c"]["sent"], 300);
    EXPECT_EQ(waits["c"]["number"], 301);
    EXPECT_EQ(waits["c"]["cycle"], false);
    EXPECT_GE(waits["c"]["seconds"], 0.0);
    EXPECT_EQ(waits["a"]["cycle"], true);
    const std::string dot = runLinx({"graph", "--dot"}).out;
    EXPECT_THAT(
        dot, HasSubstr(" s\", style=dashed, color=red, fontcolor=red, class=\"waits cycle\", tooltip=\"a -> b\"];"));
    EXPECT_THAT(dot, HasSubstr(" s\", style=dashed, class=\"waits\", tooltip=\"c -> a\"];"));
    for (const auto* one : {&a, &b, &c}) (*one)->kill9();
}

TEST_F(WaitingGraphTest, NamesCannotLeaveTheirQuotes) {
    Endpoint evil("\"];}\\ \n&lt;"), peer("\xff");
    ASSERT_EQ(send(evil, spidOf(peer), 1), 0);
    expectSignal(peer, 1);
    const std::string dot = runLinx({"graph", "--dot"}).out;
    EXPECT_THAT(dot, HasSubstr("[label=\"\\\"];}\\\\ \\\\x0a&amp;lt;\", "));
    EXPECT_THAT(dot, HasSubstr("[label=\"\\\\xff\", "));
    EXPECT_FALSE(graphOf().is_discarded()) << "it is UTF-8 whatever the names are";
}

TEST_F(WaitingGraphTest, WhoComesBackUnderItsNameIsTheSame) {
    Endpoint peer("peer");
    for (int life = 0; life < 2; ++life) {
        Endpoint again("again");
        ASSERT_EQ(send(again, spidOf(peer), 1), 0);
        expectSignal(peer, 1);
        if (life == 0) Endpoint("in its slot");
    }
    const Json graph = graphOf();
    ASSERT_EQ(graph["edges"].size(), 1u) << graph;
    EXPECT_EQ(graph["edges"][0]["from"], "again");
}

}  // namespace
