// Endpoints of different processes find each other by name.

#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"

namespace {

using Meeting = ProcessTest;

constexpr uint32_t ping = 100;
constexpr uint32_t pong = 101;

/// Opens `name` when told to, says its spid, and stays until told to go.
Child::Body holder(const char* name) {
    return [name](Line& parent) {
        parent.hear();
        Endpoint endpoint(name);
        parent.tell(spidOf(endpoint));
        parent.hear();
    };
}

LinxSpid openIn(Child& child) {
    child.tell();
    return child.hear();
}

TEST_F(Meeting, AHuntFindsAnEndpointThatIsOpen) {
    Child server(holder("server"));
    const LinxSpid spid = openIn(server);
    Endpoint client("client");
    EXPECT_EQ(spid, hunt(client, "server"));
    EXPECT_EQ("server", nameOf(client, spid));
    server.tell();
    EXPECT_EQ(0, server.exitStatus());
}

TEST_F(Meeting, AHuntForALiveNameIsAnsweredWithoutWaiting) {
    Child server(holder("server"));
    openIn(server);
    Endpoint client("client");
    ASSERT_EQ(0, linx_hunt(client, "server", nullptr));
    EXPECT_TRUE(receive(client, 0, {LINX_OS_HUNT_SIG}));
}

TEST_F(Meeting, AHuntForAnAbsentNameIsAnsweredWhenItOpens) {
    Child server(holder("server"));
    Endpoint client("client");
    ASSERT_EQ(0, linx_hunt(client, "server", nullptr));
    expectNothing(client);
    const LinxSpid spid = openIn(server);
    EXPECT_EQ(spid, expectSignal(client, LINX_OS_HUNT_SIG).sender);
    expectNothing(client);
}

TEST_F(Meeting, TheHuntersOwnSignalComesBackWithItsContents) {
    Child server(holder("server"));
    Endpoint client("client");
    for (const bool before : {true, false}) {
        LinxSignal* signal = linx_alloc(client, sizeof(LinxSignal) + 1, 77);
        *payloadOf(signal) = 42;
        ASSERT_EQ(0, linx_hunt(client, "server", &signal));
        EXPECT_EQ(nullptr, signal);
        const LinxSpid spid = before ? openIn(server) : hunt(client, "server");
        const Received answer = expectSignal(client, 77);
        EXPECT_EQ(spid, answer.sender);
        EXPECT_EQ(Bytes{42}, answer.payload);
    }
}

TEST_F(Meeting, EverybodyWhoHuntsForAnAbsentNameIsAnsweredOnce) {
    const auto hunter = [](const std::string& name) {
        return [name](Line& parent) {
            Endpoint endpoint(name);
            EXPECT_EQ(0, linx_hunt(endpoint, "late", nullptr));
            parent.tell(spidOf(endpoint));
            const LinxSpid found = expectSignal(endpoint, LINX_OS_HUNT_SIG).sender;
            EXPECT_EQ(found, expectSignal(endpoint, ping).sender);
            expectNothing(endpoint);
        };
    };
    Child first(hunter("first"));
    Child second(hunter("second"));
    Child third(hunter("third"));
    std::vector<LinxSpid> spids;
    for (Child* child : {&first, &second, &third}) spids.push_back(child->hear());
    Endpoint late("late");
    for (const LinxSpid spid : spids) EXPECT_EQ(0, send(late, spid, ping));
    for (Child* child : {&first, &second, &third}) EXPECT_EQ(0, child->exitStatus());
}

TEST_F(Meeting, TwoHuntsForOneAbsentNameAreTwoAnswers) {
    Child server(holder("server"));
    Endpoint client("client");
    ASSERT_EQ(0, linx_hunt(client, "server", nullptr));
    ASSERT_EQ(0, linx_hunt(client, "server", nullptr));
    openIn(server);
    expectSignal(client, LINX_OS_HUNT_SIG);
    expectSignal(client, LINX_OS_HUNT_SIG);
    expectNothing(client);
}

TEST_F(Meeting, TwoProcessesThatHuntForEachOtherBothFindTheOther) {
    const auto player = [](const char* own, const char* other) {
        return [own, other](Line&) {
            Endpoint endpoint(own);
            EXPECT_EQ(0, send(endpoint, hunt(endpoint, other), ping));
            const Received greeting = expectAmongOthers(endpoint, ping);
            EXPECT_EQ(other, nameOf(endpoint, greeting.sender));
            EXPECT_EQ(0, send(endpoint, greeting.sender, pong));
            expectAmongOthers(endpoint, pong);
        };
    };
    Child left(player("left", "right"));
    Child right(player("right", "left"));
    EXPECT_EQ(0, left.exitStatus());
    EXPECT_EQ(0, right.exitStatus());
}

TEST_F(Meeting, ANameIsTakenOnceInAProcess) {
    Endpoint first("name");
    EXPECT_EQ(nullptr, linx_open("name", 0, nullptr));
    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(Meeting, ANameIsTakenOnceAmongProcesses) {
    Child holding(holder("name"));
    openIn(holding);
    EXPECT_EQ(nullptr, linx_open("name", 0, nullptr));
    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(Meeting, ANameIsFreeAgainAfterClosing) {
    Child holding(holder("name"));
    const LinxSpid before = openIn(holding);
    holding.tell();
    ASSERT_EQ(0, holding.exitStatus());
    Endpoint next("name");
    EXPECT_NE(before, spidOf(next));
}

TEST_F(Meeting, ANameIsFreeAgainAfterAKill) {
    Child holding(holder("name"));
    const LinxSpid before = openIn(holding);
    holding.kill9();
    Endpoint next("name");
    EXPECT_NE(before, spidOf(next));
}

TEST_F(Meeting, AHuntDoesNotFindTheDead) {
    Child killed(holder("name"));
    openIn(killed);
    killed.kill9();
    Endpoint client("client");
    ASSERT_EQ(0, linx_hunt(client, "name", nullptr));
    expectNothing(client);
    Endpoint next("name");
    EXPECT_EQ(spidOf(next), expectSignal(client, LINX_OS_HUNT_SIG).sender);
}

TEST_F(Meeting, FirstEndpointsOfADomainAgreeOnIt) {
    constexpr uint32_t count = 8;
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 0; i < count; ++i) {
        children.push_back(std::make_unique<Child>([i](Line& parent) {
            parent.hear();
            Endpoint endpoint("endpoint" + std::to_string(i));
            for (uint32_t other = 0; other < count; ++other) hunt(endpoint, "endpoint" + std::to_string(other));
            parent.tell();
            parent.hear();
        }));
    }
    for (const auto& child : children) child->tell();
    for (const auto& child : children) child->hear();
    for (const auto& child : children) child->tell();
    for (const auto& child : children) EXPECT_EQ(0, child->exitStatus());
}

TEST_F(Meeting, TwoDomainsDoNotSeeEachOther) {
    const linxtest::TestDomain other;
    Child elsewhere([](Line& parent) {
        Endpoint same("same");
        Endpoint only("only");
        parent.tell();
        parent.hear();
    });
    elsewhere.hear();
    const linxtest::ScopedVariable back("LINX_DOMAIN", domain.path().c_str());
    Endpoint same("same");
    ASSERT_EQ(0, linx_hunt(same, "only", nullptr));
    expectNothing(same);
    elsewhere.tell();
    EXPECT_EQ(0, elsewhere.exitStatus());
}

TEST_F(Meeting, OneProcessMayBeInTwoDomains) {
    Endpoint here("here");
    const linxtest::TestDomain other;
    Endpoint there("there");
    ASSERT_EQ(0, linx_hunt(here, "there", nullptr));
    expectNothing(here);
    Endpoint neighbour("neighbour");
    EXPECT_EQ(spidOf(neighbour), hunt(there, "neighbour"));
}

TEST_F(Meeting, ABareWordIsADomainBesideTheDefault) {
    const std::string word = "test" + std::to_string(getpid());
    const std::string path = "/dev/shm/linx." + std::to_string(geteuid()) + "." + word;
    {
        Child server([&](Line& parent) {
            const linxtest::ScopedVariable bare("LINX_DOMAIN", word.c_str());
            Endpoint endpoint("server");
            parent.tell(spidOf(endpoint));
            parent.hear();
        });
        const LinxSpid spid = server.hear();
        const linxtest::ScopedVariable absolute("LINX_DOMAIN", path.c_str());
        Endpoint client("client");
        EXPECT_EQ(spid, hunt(client, "server"));
        server.tell();
        EXPECT_EQ(0, server.exitStatus());
    }
    EXPECT_GT(std::filesystem::remove_all(path), 0u);
}

}  // namespace
