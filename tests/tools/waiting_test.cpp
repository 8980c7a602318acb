// Who waits for whom, as its slot tells: in scenes that were built by hand.

#include <gmock/gmock.h>

#include <chrono>
#include <nlohmann/json.hpp>

#include "inspect/waits.h"
#include "tests/tools/asker.h"
#include "tests/tools/scene.h"

namespace {

using Json = nlohmann::json;
using Names = std::vector<std::string>;

Json jsonOf(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    return Json::parse(runLinx(arguments).out, nullptr, false);
}

double secondsNow() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

class WaitingTest : public ProcessTest {};

TEST_F(WaitingTest, AnAskerIsToldWithWhomItAsked) {
    const auto client = asker("client", 2000);
    const LinxSpid spid = client->hear();
    Endpoint server("server");
    client->tell(spidOf(server));
    expectSignal(server, 2000);
    client->awaitSleep();
    const Json waits = jsonOf({"waits"});
    ASSERT_EQ(waits["edges"].size(), 1u) << waits;
    const Json& edge = waits["edges"][0];
    EXPECT_EQ(edge.size(), 5u);
    EXPECT_EQ(edge["from"], "client");
    EXPECT_EQ(edge["to"], "server");
    EXPECT_EQ(edge["sent"], 2000);
    EXPECT_EQ(edge["number"], 2001);
    EXPECT_GE(edge["seconds"], 0.0);
    EXPECT_LT(edge["seconds"], 3600.0);
    EXPECT_EQ(waits["cycles"], Json::array());
    const Json list = jsonOf({"list"});
    EXPECT_EQ(list[0]["state"], "waiting");
    EXPECT_EQ(list[0]["waits_for"], "server");
    EXPECT_THAT(runLinx({"status", "client"}).out, testing::HasSubstr("for 2001, having sent 2000 to server\n"));
    EXPECT_THAT(runLinx({"waits", "--dot"}).out,
                testing::HasSubstr("\"client\" -> \"server\" [label=\"2000 -> 2001"));
    ASSERT_EQ(send(server, spid, 2001), 0);
    client->awaitSleep();
    EXPECT_EQ(jsonOf({"waits"})["edges"], Json::array());
    EXPECT_EQ(jsonOf({"list"})[0]["state"], "sleeping");
    client->tell();
    EXPECT_EQ(client->exitStatus(), 0);
}

/// Whoever waits for an answer mostly lets orders to end through as well, and names them first.
TEST_F(WaitingTest, AWaitIsToldByTheLastOfItsNumbers) {
    Endpoint server("server");
    const LinxSpid spid = spidOf(server);
    Child client([spid](Line&) {
        Endpoint endpoint("client");
        ASSERT_EQ(send(endpoint, spid, 2000), 0);
        EXPECT_TRUE(receive(endpoint, patience, {1280, 1281, 2001}));
        EXPECT_TRUE(receive(endpoint, patience, {1, 2, 3, 4, 5, 6}));
    });
    const Received asked = expectSignal(server, 2000);
    client.awaitSleep();
    EXPECT_EQ(jsonOf({"waits"})["edges"][0]["number"], 2001);
    EXPECT_THAT(runLinx({"status", "client"}).out, testing::HasSubstr(", for 1280, 1281, 2001, having"));
    EXPECT_THAT(runLinx({"record", "client"}).out, testing::HasSubstr("for 2001 and 2 more\n"));
    ASSERT_EQ(send(server, asked.sender, 2001), 0);
    client.awaitSleep();
    EXPECT_EQ(jsonOf({"waits"})["edges"][0]["number"], 4);
    EXPECT_THAT(runLinx({"status", "client"}).out, testing::HasSubstr("for 1, 2, 3, 4, ..., having"));
    EXPECT_THAT(runLinx({"record", "client"}).out, testing::HasSubstr("for 6 and 5 more\n"));
    ASSERT_EQ(send(server, asked.sender, 6), 0);
    EXPECT_EQ(client.exitStatus(), 0);
}

TEST_F(WaitingTest, ThreeThatAskEachOtherInACircleAreACycle) {
    const auto a = asker("a", 100), b = asker("b", 200), c = asker("c", 300);
    const LinxSpid spidA = a->hear(), spidB = b->hear(), spidC = c->hear();
    a->tell(spidB);
    b->tell(spidC);
    c->tell(spidA);
    for (const auto* one : {&a, &b, &c}) (*one)->awaitSleep();
    const Json waits = jsonOf({"waits"});
    EXPECT_EQ(waits["edges"].size(), 3u);
    EXPECT_EQ((Json{{"a", "b", "c"}}), waits["cycles"]);
    EXPECT_THAT(runLinx({"waits"}).out, testing::HasSubstr("cycle: a -> b -> c -> a\n"));
    const Outcome doctor = runLinx({"doctor", "-j"});
    EXPECT_EQ(doctor.status, 1);
    const Json findings = Json::parse(doctor.out, nullptr, false);
    ASSERT_EQ(findings.size(), 1u) << findings;
    EXPECT_EQ(findings[0]["finding"], "cycle");
    EXPECT_EQ(findings[0]["subject"], "a");
    EXPECT_THAT(findings[0]["text"],
                testing::HasSubstr("waits for b, which waits for c, which waits for a: each has asked the next one"));
    for (const auto* one : {&a, &b, &c}) (*one)->kill9();
}

TEST_F(WaitingTest, CirclesBeginWithWhoeverComesFirstWhateverLeadsIntoThem) {
    using linx::Spid;
    const auto edge = [](uint32_t from, uint32_t to) { return linx::inspect::Edge{Spid{from}, Spid{to}, 0, 0, 0}; };
    const auto cycles = linx::inspect::cyclesOf({edge(1, 2), edge(2, 5), edge(3, 4), edge(4, 9), edge(6, 5),
                                                 edge(5, 6), edge(8, 7), edge(7, 8), edge(10, 10)});
    const std::vector<std::vector<Spid>> expected = {{Spid{6}, Spid{5}}, {Spid{8}, Spid{7}}, {Spid{10}}};
    EXPECT_EQ(cycles, expected);
}

TEST_F(WaitingTest, WhoIsNotAnsweredForLongIsFound) {
    const auto client = asker("client", 2000);
    client->hear();
    Endpoint server("server");
    client->tell(spidOf(server));
    client->awaitSleep();
    Json findings;
    // The time itself is what is waited for.
    while (findings.empty()) findings = jsonOf({"doctor"});
    ASSERT_EQ(findings.size(), 1u) << findings;
    EXPECT_EQ(findings[0]["finding"], "long-wait");
    EXPECT_EQ(findings[0]["subject"], "client");
    EXPECT_THAT(findings[0]["text"], testing::HasSubstr("sent 2000 to server "));
    expectSignal(server, 2000);
    server.close();
    findings.clear();  // the end has woken it, and it sleeps anew
    while (findings.empty()) findings = jsonOf({"doctor"});
    ASSERT_EQ(findings.size(), 1u) << findings;
    EXPECT_THAT(findings[0]["text"], testing::HasSubstr("sent 2000 to server, which has ended, "));
    EXPECT_THAT(findings[0]["remedy"], testing::HasSubstr("linx shutdown client"));
    client->kill9();
}

/// A signal has no time of its own: it is known from when its owner or its sender sleeps for the next time.
TEST_F(WaitingTest, WhoHasASignalIsToldSinceWhen) {
    Child hoarder([](Line& test) {
        Endpoint endpoint("hoarder");
        test.tell(spidOf(endpoint));
        LinxSignal* kept = nullptr;
        ASSERT_EQ(4, linx_receive(endpoint, &kept, anySignal));
        test.tell();
        expectSignal(endpoint, 9);
        linx_free_buf(endpoint, &kept);
    });
    const LinxSpid spid = hoarder.hear();
    const double sent = secondsNow();
    Endpoint client("client"), idler("idler");
    ASSERT_EQ(send(client, spid, 1), 0);
    ASSERT_EQ(send(client, spidOf(idler), 1), 0);
    hoarder.hear();
    hoarder.awaitSleep();
    EXPECT_TRUE(jsonOf({"holders", "idler"})[0]["oldest_seconds"].is_null()) << "the sender has not slept";
    EXPECT_FALSE(receive(client, 1));
    const double known = secondsNow();
    for (const char* name : {"hoarder", "idler"}) {
        const double asked = secondsNow();
        const Json age = jsonOf({"holders", name})[0]["oldest_seconds"];
        ASSERT_TRUE(age.is_number()) << name;
        EXPECT_GE(age, asked - known) << name;
        EXPECT_LE(age, secondsNow() - sent) << name;
    }
    ASSERT_EQ(send(client, spid, 9), 0);
    EXPECT_EQ(hoarder.exitStatus(), 0);
}

TEST_F(WaitingTest, WhoWaitsForAnySignalWaitsForNobody) {
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell(spidOf(endpoint));
        LinxSignal* signal = nullptr;
        ASSERT_EQ(4, linx_receive(endpoint, &signal, anySignal));
        linx_free_buf(endpoint, &signal);
    });
    const LinxSpid spid = server.hear();
    server.awaitSleep();
    EXPECT_EQ(jsonOf({"waits"})["edges"], Json::array());
    EXPECT_THAT(runLinx({"status", "server"}).out, testing::HasSubstr(", for any signal\n"));
    Endpoint client("client");
    ASSERT_EQ(send(client, spid, 1), 0);
    EXPECT_EQ(server.exitStatus(), 0);
}

}  // namespace
