#include "link/session/peer.h"

#include "tests/link/pair.h"

namespace {

using namespace linktest;

constexpr auto lower = Peer::Side::lower;
constexpr auto higher = Peer::Side::higher;

/// Two peers, and the connections between them, which carry frames at once.
class Nodes {
public:
    Nodes() : a(settingsOf(1), lower, true), b(settingsOf(2), higher, true) {}

    void connect(uint64_t number, bool aDialled) {
        a.connected(Connection(number), aDialled, ++random_, now);
        b.connected(Connection(number), !aDialled, ++random_, now);
        open_.push_back(Connection(number));
    }
    void settle() {
        for (bool isQuiet = false; !isQuiet;) {
            isQuiet = true;
            for (const Connection connection : open_) {
                isQuiet = !carry(a, b, connection) && !carry(b, a, connection) && isQuiet;
            }
            isQuiet = !closeServed(a, b) && !closeServed(b, a) && isQuiet;
        }
    }
    void loseConnection(Peer& peer, uint64_t number) { peer.disconnected(Connection(number), ++random_, now); }

    Time now = {};
    Peer a;
    Peer b;

private:
    bool carry(Peer& from, Peer& to, Connection connection) {
        bool hasCarried = false;
        while (const std::optional<Bytes> frame = from.nextFrame(connection, now)) {
            to.arrived(connection, frame->data(), frame->size(), ++random_, now);
            hasCarried = true;
        }
        return hasCarried;
    }
    bool closeServed(Peer& from, Peer& to) {
        bool hasClosed = false;
        while (const std::optional<Connection> served = from.toClose()) {
            to.disconnected(*served, ++random_, now);
            hasClosed = true;
        }
        return hasClosed;
    }

    std::vector<Connection> open_;
    uint64_t random_ = 0;
};

template <class Kind>
size_t count(Peer& peer) {
    size_t found = 0;
    while (peer.event() != nullptr) found += std::holds_alternative<Kind>(peer.take());
    return found;
}

}  // namespace

TEST(PeerTest, DialsOnceAndAgainAfterAFailureThatIsABitLonger) {
    Peer peer(settingsOf(1), lower, true);
    EXPECT_TRUE(peer.wantsDial(0s));
    EXPECT_FALSE(peer.wantsDial(0s)) << "it is being dialled";
    peer.dialFailed(0, 0s);
    EXPECT_FALSE(peer.wantsDial(24ms));
    EXPECT_EQ(peer.deadline(), Time(25ms)) << "half of 50 ms, and no jitter";
    EXPECT_TRUE(peer.wantsDial(25ms));
    peer.dialFailed(50000, 25ms);
    EXPECT_EQ(peer.deadline(), Time(25ms + 50ms + Time(50000 % 50001)));
}

TEST(PeerTest, DialsAtLeastEveryTwoSeconds) {
    Peer peer(settingsOf(1), lower, true);
    Time now = {};
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(peer.wantsDial(now));
        peer.dialFailed(UINT64_MAX, now);
        EXPECT_LE(peer.deadline() - now, Time(2s));
        now = peer.deadline();
    }
}

TEST(PeerTest, OneThatOnlyWaitsNeverDials) {
    Peer peer(settingsOf(1), lower, false);
    EXPECT_FALSE(peer.wantsDial(100s));
    EXPECT_EQ(peer.deadline(), Time::max());
}

TEST(PeerTest, WhatIsSoughtIsSoughtInEachSession) {
    Nodes nodes;
    nodes.a.seek({"before", {}});
    nodes.connect(1, true);
    nodes.settle();
    nodes.a.seek({"while up", {}});
    nodes.settle();
    EXPECT_EQ(count<Sought>(nodes.b), 2u);
    nodes.loseConnection(nodes.a, 1);
    nodes.loseConnection(nodes.b, 1);
    nodes.connect(2, true);
    nodes.settle();
    EXPECT_EQ(count<Sought>(nodes.b), 2u);
}

TEST(PeerTest, WhereBothDialAtOnceTheConnectionOfTheLowerKeyStays) {
    for (const bool lowerFirst : {true, false}) {
        Nodes nodes;
        nodes.connect(1, lowerFirst);
        nodes.connect(2, !lowerFirst);
        nodes.settle();
        ASSERT_NE(nodes.a.session(), nullptr);
        ASSERT_NE(nodes.b.session(), nullptr);
        EXPECT_EQ(nodes.a.session()->terms()->tagIn, nodes.b.session()->terms()->tagOut);
        EXPECT_EQ(count<Up>(nodes.a), 1u);
        nodes.loseConnection(nodes.a, lowerFirst ? 2 : 1);
        EXPECT_NE(nodes.a.session(), nullptr) << "the other one was closed long ago";
        nodes.loseConnection(nodes.a, lowerFirst ? 1 : 2);
        EXPECT_EQ(nodes.a.session(), nullptr);
    }
}

TEST(PeerTest, ANewSessionReplacesTheOldOneWhoseEndIsToldFirst) {
    Nodes nodes;
    nodes.connect(1, false);
    nodes.settle();
    EXPECT_EQ(count<Up>(nodes.a), 1u);
    EXPECT_EQ(count<Up>(nodes.b), 1u);
    nodes.loseConnection(nodes.b, 1);
    ASSERT_TRUE(nodes.b.toClose());  // of which `a` does not hear
    EXPECT_EQ(count<Down>(nodes.b), 1u);
    nodes.connect(2, false);
    EXPECT_NE(nodes.a.session(), nullptr) << "until the new one is up";
    nodes.settle();
    ASSERT_NE(nodes.a.event(), nullptr);
    EXPECT_EQ(nodes.a.session(), nullptr) << "until the old one's end was taken";
    const Event first = nodes.a.take();
    ASSERT_TRUE(std::holds_alternative<Down>(first));
    EXPECT_EQ(std::get<Down>(first).reason, End::replaced);
    EXPECT_NE(nodes.a.session(), nullptr);
    EXPECT_TRUE(std::holds_alternative<Up>(nodes.a.take()));
}

TEST(PeerTest, AConnectionThatOnlyGreetsReplacesNothing) {
    Nodes nodes;
    nodes.connect(1, true);
    nodes.settle();
    nodes.a.connected(Connection(2), false, 99, nodes.now);
    while (nodes.a.nextFrame(Connection(2), nodes.now)) {
    }
    nodes.now = 1s;
    for (int i = 0; i < 4; ++i) {
        nodes.now += 300ms;
        nodes.a.tick(1, nodes.now);
        nodes.b.tick(1, nodes.now);
        nodes.settle();
    }
    EXPECT_NE(nodes.a.session(), nullptr);
    EXPECT_EQ(count<Down>(nodes.a), 0u);
}

TEST(PeerTest, AfterLeavingItDialsNoMore) {
    Nodes nodes;
    nodes.connect(1, true);
    nodes.settle();
    EXPECT_EQ(count<Up>(nodes.b), 1u);
    nodes.a.leave(nodes.now + 200ms);
    nodes.now += 200ms;
    nodes.a.tick(1, nodes.now);
    nodes.settle();
    EXPECT_EQ(nodes.a.session(), nullptr);
    EXPECT_FALSE(nodes.a.wantsDial(100s));
    EXPECT_EQ(count<Down>(nodes.b), 1u);
}
