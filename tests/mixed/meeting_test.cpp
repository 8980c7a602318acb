// Endpoints of different word sizes find each other by name.

#include <cerrno>

#include "tests/mixed/support/mixed_test.h"

namespace {

using Meeting = MixedTest;

constexpr uint32_t ping = 100;
constexpr uint32_t pong = 101;

LinxSpid openIn(const Child& child) {
    child.tell();
    return child.hear();
}

const Role server("Meeting.server", [](Line& parent) {
    parent.hear();
    Endpoint endpoint("server");
    parent.tell(spidOf(endpoint));
    parent.hear();
});

const Role client("Meeting.client", [](Line& parent) {
    Endpoint endpoint("client");
    ASSERT_EQ(0, linx_hunt(endpoint, "server", nullptr));
    parent.tell();
    const Received answer = expectSignal(endpoint, LINX_OS_HUNT_SIG);
    EXPECT_EQ("server", nameOf(endpoint, answer.sender));
    parent.tell(answer.sender);
});

TEST_F(Meeting, AHuntFindsAnEndpointThatIsOpen) {
    Child other(server.in(Size::other));
    const LinxSpid spid = openIn(other);
    Endpoint endpoint("client");
    ASSERT_EQ(0, linx_hunt(endpoint, "server", nullptr));
    EXPECT_EQ(spid, expectSignal(endpoint, LINX_OS_HUNT_SIG, 0).sender);
    EXPECT_EQ("server", nameOf(endpoint, spid));
    other.tell();
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Meeting, AHuntForAnAbsentNameIsAnsweredWhenTheOtherSizeOpensIt) {
    Child other(server.in(Size::other));
    Endpoint endpoint("client");
    LinxSignal* own = linx_alloc(endpoint, sizeof(LinxSignal) + 1, 77);
    *payloadOf(own) = 42;
    ASSERT_EQ(0, linx_hunt(endpoint, "server", &own));
    expectNothing(endpoint);
    const LinxSpid spid = openIn(other);
    const Received answer = expectSignal(endpoint, 77);
    EXPECT_EQ(spid, answer.sender);
    EXPECT_EQ(Bytes{42}, answer.payload);
    other.tell();
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Meeting, OpeningAnswersThePendingHuntsOfTheOtherSize) {
    Child other(client.in(Size::other));
    other.hear();
    Endpoint endpoint("server");
    EXPECT_EQ(spidOf(endpoint), other.hear());
    EXPECT_EQ(0, other.exitStatus());
}

const Role player("Meeting.player", [](Line&) {
    Endpoint endpoint("left");
    EXPECT_EQ(0, send(endpoint, hunt(endpoint, "right"), ping));
    const Received greeting = expectAmongOthers(endpoint, ping);
    EXPECT_EQ("right", nameOf(endpoint, greeting.sender));
    EXPECT_EQ(0, send(endpoint, greeting.sender, pong));
    expectAmongOthers(endpoint, pong);
});

TEST_F(Meeting, TwoThatHuntForEachOtherBothFindTheOther) {
    for (int round = 0; round < 5; ++round) {
        Child left(player.in(Size::other));
        Endpoint right("right");
        EXPECT_EQ(0, send(right, hunt(right, "left"), ping));
        const Received greeting = expectAmongOthers(right, ping);
        EXPECT_EQ("left", nameOf(right, greeting.sender));
        EXPECT_EQ(0, send(right, greeting.sender, pong));
        expectAmongOthers(right, pong);
        EXPECT_EQ(0, left.exitStatus());
    }
}

const Role lateComer("Meeting.lateComer", [](Line& parent) {
    EXPECT_EQ(nullptr, linx_open("server", 0, nullptr));
    parent.tell(static_cast<uint32_t>(errno));
});

TEST_F(Meeting, ANameIsTakenOnceAmongBothSizes) {
    {
        Child other(server.in(Size::other));
        openIn(other);
        EXPECT_EQ(nullptr, linx_open("server", 0, nullptr));
        EXPECT_EQ(EADDRINUSE, errno);
        other.tell();
        EXPECT_EQ(0, other.exitStatus());
    }
    Endpoint endpoint("server");
    Child other(lateComer.in(Size::other));
    EXPECT_EQ(static_cast<uint32_t>(EADDRINUSE), other.hear());
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Meeting, ANameIsTakenOverFromAKilledHolderOfTheOtherSize) {
    LinxSpid before = 0;
    for (int round = 0; round < 6; ++round) {
        Child holder(server.in(round % 2 == 0 ? Size::other : Size::own));
        const LinxSpid spid = openIn(holder);
        EXPECT_NE(before, spid);
        before = spid;
        holder.kill9();
    }
    Endpoint endpoint("server");
    EXPECT_NE(before, spidOf(endpoint));
}

TEST_F(Meeting, AHuntDoesNotFindTheDeadOfTheOtherSize) {
    Child killed(server.in(Size::other));
    openIn(killed);
    killed.kill9();
    Endpoint endpoint("client");
    ASSERT_EQ(0, linx_hunt(endpoint, "server", nullptr));
    expectNothing(endpoint);
    Child next(server.in(Size::other));
    const LinxSpid spid = openIn(next);
    EXPECT_EQ(spid, expectSignal(endpoint, LINX_OS_HUNT_SIG).sender);
    next.tell();
    EXPECT_EQ(0, next.exitStatus());
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
    for (uint32_t other = 0; other < atOnce; ++other) hunt(endpoint, nameOfFirst(other));
    parent.tell();
    parent.hear();
});

TEST_F(Meeting, FirstEndpointsOfBothSizesAgreeOnTheDomain) {
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 0; i < atOnce; ++i) {
        children.push_back(std::make_unique<Child>(first.in(i % 2 == 0 ? Size::own : Size::other)));
        children.back()->tell(i);
    }
    for (const auto& child : children) child->hear();
    for (const auto& child : children) child->tell();
    for (const auto& child : children) child->hear();
    for (const auto& child : children) child->tell();
    for (const auto& child : children) EXPECT_EQ(0, child->exitStatus());
}

}  // namespace
