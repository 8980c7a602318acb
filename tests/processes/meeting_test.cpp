// Endpoints of different processes find each other by name.

#include <cerrno>

#include "tests/kit/role_test.h"
#include "tests/kit/signals.h"

namespace {

using Meeting = RoleTest;

constexpr uint32_t ping = 100;
constexpr uint32_t pong = 101;

/// Opens "name" when told to, says its spid, and stays until told to go.
const Role holder("Meeting.holder", [](Line& parent) {
    parent.hear();
    Endpoint endpoint("name");
    parent.tell(spidOf(endpoint));
    parent.hear();
});

LinxSpid openIn(const Child& child) {
    child.tell();
    return met(child.hear(), there("name"));
}

TEST_F(Meeting, AHuntFindsAnEndpointThatIsOpen) {
    Child server(holder);
    const LinxSpid spid = openIn(server);
    Endpoint client("client");
    EXPECT_EQ(hunt(client, there("name")), spid);
    EXPECT_EQ(nameOf(client, spid), there("name"));
    server.tell();
    EXPECT_EQ(server.exitStatus(), 0);
}

TEST_F(Meeting, AHuntForALiveNameIsAnsweredWithoutWaiting) {
    Child server(holder);
    const LinxSpid spid = openIn(server);
    Endpoint client("client");
    ASSERT_EQ(linx_hunt(client, there("name").c_str(), nullptr), 0);
    EXPECT_EQ(expectSignal(client, LINX_OS_HUNT_SIG, 0).sender, spid);
}

TEST_F(Meeting, AHuntForAnAbsentNameIsAnsweredWhenItOpens) {
    Child server(holder);
    Endpoint client("client");
    ASSERT_EQ(linx_hunt(client, there("name").c_str(), nullptr), 0);
    expectNothing(client);
    const LinxSpid spid = openIn(server);
    EXPECT_EQ(expectSignal(client, LINX_OS_HUNT_SIG).sender, spid);
    expectNothing(client);
}

const Role hunter("Meeting.hunter", [](Line& parent) {
    Endpoint endpoint("hunter" + std::to_string(parent.hear()));
    EXPECT_EQ(linx_hunt(endpoint, here("late").c_str(), nullptr), 0);
    parent.tell(spidOf(endpoint));
    const LinxSpid found = expectSignal(endpoint, LINX_OS_HUNT_SIG).sender;
    EXPECT_EQ(nameOf(endpoint, found), here("late"));
    EXPECT_EQ(expectSignal(endpoint, ping).sender, found);
    expectNothing(endpoint);
    parent.tell(found);
});

TEST_F(Meeting, EverybodyWhoHuntsForAnAbsentNameIsAnsweredOnce) {
    Child hunters[] = {Child(hunter), Child(hunter.in(Size::own)), Child(hunter)};
    std::vector<LinxSpid> spids;
    uint32_t number = 0;
    for (const Child& child : hunters) {
        child.tell(number);
        const std::string name = "hunter" + std::to_string(number);
        spids.push_back(met(child.hear(), number == 1 ? here(name) : there(name)));
        ++number;
    }
    Endpoint late("late");
    for (const LinxSpid spid : spids) EXPECT_EQ(send(late, spid, ping), 0);
    for (Child& child : hunters) {
        EXPECT_EQ(met(child.hear(), "late"), spidOf(late));
        EXPECT_EQ(child.exitStatus(), 0);
    }
}

TEST_F(Meeting, TheHuntersOwnSignalComesBackWithItsContents) {
    Child server(holder);
    Endpoint client("client");
    for (const bool before : {true, false}) {
        LinxSignal* signal = linx_alloc(client, sizeof(LinxSignal) + 1, 77);
        *payloadOf(signal) = 42;
        ASSERT_EQ(linx_hunt(client, there("name").c_str(), &signal), 0);
        EXPECT_EQ(signal, nullptr);
        const LinxSpid spid = before ? openIn(server) : hunt(client, there("name"));
        const Received answer = expectSignal(client, 77);
        EXPECT_EQ(answer.sender, spid);
        EXPECT_EQ(answer.payload, Bytes{42});
    }
}

TEST_F(Meeting, TwoHuntsForOneAbsentNameAreTwoAnswers) {
    Child server(holder);
    Endpoint client("client");
    ASSERT_EQ(linx_hunt(client, there("name").c_str(), nullptr), 0);
    ASSERT_EQ(linx_hunt(client, there("name").c_str(), nullptr), 0);
    openIn(server);
    expectSignal(client, LINX_OS_HUNT_SIG);
    expectSignal(client, LINX_OS_HUNT_SIG);
    expectNothing(client);
}

void play(const std::string& own, const std::string& other) {
    Endpoint endpoint(own);
    EXPECT_EQ(send(endpoint, hunt(endpoint, other), ping), 0);
    const Received greeting = expectAmongOthers(endpoint, ping);
    EXPECT_EQ(nameOf(endpoint, greeting.sender), other);
    EXPECT_EQ(send(endpoint, greeting.sender, pong), 0);
    expectAmongOthers(endpoint, pong);
}

/// By names of their own in each round: a link may still know those of the last one.
std::string nameIn(uint32_t round, const char* name) {
    return name + std::to_string(round);
}

const Role player("Meeting.player", [](Line& parent) {
    const uint32_t round = parent.hear();
    play(nameIn(round, "left"), here(nameIn(round, "right")));
});

TEST_F(Meeting, TwoProcessesThatHuntForEachOtherBothFindTheOther) {
    for (uint32_t round = 0; round < 5; ++round) {
        Child left(player);
        left.tell(round);
        play(nameIn(round, "right"), there(nameIn(round, "left")));
        EXPECT_EQ(left.exitStatus(), 0);
    }
}

TEST_F(Meeting, ANameIsTakenOnceInAProcess) {
    Endpoint first("name");
    EXPECT_EQ(linx_open("name", 0, nullptr), nullptr);
    EXPECT_EQ(errno, EADDRINUSE);
}

TEST_F(Meeting, ANameIsTakenOnceAmongProcesses) {
    Child holding(holder);
    openIn(holding);
    EXPECT_EQ(linx_open("name", 0, nullptr), nullptr);
    EXPECT_EQ(errno, EADDRINUSE);
    holding.tell();
    EXPECT_EQ(holding.exitStatus(), 0);
    Endpoint endpoint("name");
}

TEST_F(Meeting, ANameIsFreeAgainAfterClosing) {
    Child holding(holder);
    const LinxSpid before = openIn(holding);
    holding.tell();
    ASSERT_EQ(holding.exitStatus(), 0);
    Endpoint next("name");
    EXPECT_NE(spidOf(next), before);
}

TEST_F(Meeting, ANameIsFreeAgainAfterAKill) {
    LinxSpid before = 0;
    for (int round = 0; round < 6; ++round) {
        Child holding(holder.in(round % 2 == 0 ? Size::other : Size::own));
        const LinxSpid spid = openIn(holding);
        EXPECT_NE(spid, before);
        before = spid;
        holding.kill9();
    }
    Endpoint next("name");
    EXPECT_NE(spidOf(next), before);
}

TEST_F(Meeting, AHuntDoesNotFindTheDead) {
    Child killed(holder);
    const LinxSpid ended = openIn(killed);
    killed.kill9();
    learnEndOf(ended);
    Endpoint client("client");
    ASSERT_EQ(linx_hunt(client, there("name").c_str(), nullptr), 0);
    expectNothing(client);
    Child next(holder);
    const LinxSpid spid = openIn(next);
    EXPECT_EQ(expectSignal(client, LINX_OS_HUNT_SIG).sender, spid);
}

constexpr uint32_t atOnce = 8;

std::string nameOfFirst(uint32_t number) {
    return "first" + std::to_string(number);
}

const Role first("Meeting.first", [](Line& parent) {
    const uint32_t number = parent.hear();
    parent.tell();
    parent.hear();
    Endpoint endpoint(nameOfFirst(number));
    for (uint32_t other = 0; other < atOnce; ++other)
        hunt(endpoint, other % 2 == 0 ? here(nameOfFirst(other)) : there(nameOfFirst(other)));
    parent.tell();
    parent.hear();
});

TEST_F(Meeting, FirstEndpointsOfADomainAgreeOnIt) {
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 0; i < atOnce; ++i) {
        children.push_back(std::make_unique<Child>(first.in(i % 2 == 0 ? Size::own : Size::other)));
        children.back()->tell(i);
    }
    for (const auto& child : children) child->hear();
    for (const auto& child : children) child->tell();
    for (const auto& child : children) child->hear();
    for (const auto& child : children) child->tell();
    for (const auto& child : children) EXPECT_EQ(child->exitStatus(), 0);
}

}  // namespace
