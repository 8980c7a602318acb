// Sessions that an engine carries.

#include "tests/link/engine/engines.h"
#include "tests/link/engine/nodes.h"

namespace {

using namespace linktest;

constexpr auto lower = Peer::Side::lower;
constexpr auto higher = Peer::Side::higher;

template <class Maker>
class SwitchboardTest : public testing::Test {
protected:
    void comeUp(Node& a, Node& b) {
        ASSERT_TRUE(turnUntil({&a, &b}, [&] { return a.session() != nullptr && b.session() != nullptr; }));
    }
    /// An endpoint each that the other node knows.
    void introduce(Node& a, Node& b) {
        client = *a.session()->announce("client");
        server = *b.session()->announce("server");
        ASSERT_TRUE(turnUntil({&a, &b}, [&] { return !a.announced.empty() && !b.announced.empty(); }));
    }

    Maker maker;
    std::unique_ptr<Engine> listener = maker.listener();
    std::unique_ptr<Engine> dialler = maker.dialler();
    OwnId client = {};
    OwnId server = {};
};
TYPED_TEST_SUITE(SwitchboardTest, Makers);

TYPED_TEST(SwitchboardTest, SignalsOfAllSizesCrossInOrder) {
    Node a(*this->dialler, 1, lower, true);
    Node b(*this->listener, 2, higher, false);
    ASSERT_NO_FATAL_FAILURE(this->comeUp(a, b));
    ASSERT_NO_FATAL_FAILURE(this->introduce(a, b));
    constexpr size_t signals = 400;
    const auto sizeOf = [](size_t i) { return i % 50 == 0 ? 900000 : i * 37 % 4000; };
    size_t sent = 0;
    size_t verified = 0;
    const auto areThere = [&] {
        const FarId to = FarId(numberOf(this->server));
        while (sent < signals) {
            const uint8_t first = static_cast<uint8_t>(sent);
            const uint32_t number = static_cast<uint32_t>(sent);
            if (a.session()->send(to, this->client, number, bytesOf(sizeOf(sent), first)) != Sent::taken) break;
            ++sent;
        }
        for (const Arrived& it : b.arrived) {
            EXPECT_EQ(it.number, verified);
            EXPECT_EQ(it.payload, bytesOf(sizeOf(verified), static_cast<uint8_t>(verified)));
            b.session()->consumed(this->server, it.payload.size());
            ++verified;
        }
        b.arrived.clear();
        return verified == signals;
    };
    EXPECT_TRUE(turnUntil({&a, &b}, areThere)) << sent << " sent, " << verified << " there";
    EXPECT_TRUE(a.downs.empty());
    EXPECT_TRUE(b.downs.empty());
}

TYPED_TEST(SwitchboardTest, AnIdleLinkStaysUpAndKnowsItsRoundTrip) {
    Node a(*this->dialler, 1, lower, true, leastTolerance);
    Node b(*this->listener, 2, higher, false, leastTolerance);
    ASSERT_NO_FATAL_FAILURE(this->comeUp(a, b));
    const auto haveSaidMuch = [&] {
        const auto framesIn = [](Node& node) {
            return node.session() == nullptr ? 0 : node.session()->counts().framesIn;
        };
        return framesIn(a) >= 20 && framesIn(b) >= 20;  // 330 ms of pings: more than three tolerances
    };
    ASSERT_TRUE(turnUntil({&a, &b}, haveSaidMuch));
    EXPECT_GT(a.session()->counts().roundTrip.count(), 0);
    EXPECT_EQ(a.ups, a.downs.size() + 1);
}

TYPED_TEST(SwitchboardTest, ANodeThatComesBackIsFoundAgain) {
    Node a(*this->dialler, 1, lower, true);
    {
        Node b(*this->listener, 2, higher, false);
        ASSERT_NO_FATAL_FAILURE(this->comeUp(a, b));
        this->listener.reset();
    }
    ASSERT_TRUE(turnUntil({&a}, [&] { return a.downs.size() == 1 && !a.trouble().empty(); }));
    EXPECT_EQ(a.session(), nullptr);
    this->listener = this->maker.listener();
    ASSERT_NE(this->listener, nullptr);
    Node b(*this->listener, 3, higher, false);
    ASSERT_NO_FATAL_FAILURE(this->comeUp(a, b));
    EXPECT_EQ(a.ups, 2u);
    EXPECT_EQ(a.trouble(), "");
}

TYPED_TEST(SwitchboardTest, ANodeThatDialsAnewReplacesItsOldSession) {
    Node b(*this->listener, 2, higher, false);
    {
        Node a(*this->dialler, 1, lower, true);
        ASSERT_NO_FATAL_FAILURE(this->comeUp(a, b));
        this->dialler.reset();
    }
    this->dialler = this->maker.dialler();
    Node a(*this->dialler, 3, lower, true);
    ASSERT_TRUE(turnUntil({&a, &b}, [&] { return a.session() != nullptr && b.ups == 2; }));
    EXPECT_EQ(b.downs.size(), 1u);
}

TYPED_TEST(SwitchboardTest, WhoeverLeavesSaysSo) {
    Node a(*this->dialler, 1, lower, true);
    Node b(*this->listener, 2, higher, false);
    ASSERT_NO_FATAL_FAILURE(this->comeUp(a, b));
    b.peer().leave(clockNow() + 200ms);
    a.peer().leave(clockNow() + longest);
    ASSERT_TRUE(turnUntil({&a, &b}, [&] { return a.downs.size() == 1 && b.downs.size() == 1; }));
    EXPECT_EQ(a.downs[0], End::bye);
    EXPECT_EQ(b.downs[0], End::bye);
}

}  // namespace
