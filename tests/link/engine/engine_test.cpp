// What each engine has to do, whatever it carries frames over.

#include "tests/link/engine/engines.h"
#include "tests/link/engine/nodes.h"

namespace {

using namespace linktest;

constexpr PeerNumber onlyPeer = {};

template <class Maker>
class EngineTest : public testing::Test {
protected:
    void dial() {
        ASSERT_NE(listener, nullptr);
        diallingEngine->dial(onlyPeer, clockNow());
        // One that waits may not hear of a connection before something was sent over it.
        ASSERT_TRUE(listenUntil({&here, &there}, [&] { return !here.connected.empty(); }));
        mine = here.connected.back().connection;
        ASSERT_TRUE(listenUntil({&here, &there}, [&] { return !there.connected.empty(); }));
        yours = there.connected.back().connection;
    }
    /// Offers it again until it is taken.
    bool send(Told& from, Told& to, Connection connection, const Bytes& frame) {
        Carried carried = Carried::later;
        const auto isDecided = [&] {
            carried = from.engine().send(connection, frame);
            return carried != Carried::later;
        };
        return listenUntil({&to, &from}, isDecided) && carried == Carried::taken;
    }

    Maker maker;
    std::unique_ptr<Engine> listener = maker.listener();
    std::unique_ptr<Engine> diallingEngine = maker.dialler();
    Told there{*listener};
    Told here{*diallingEngine};
    Connection mine = {};
    Connection yours = {};
};
TYPED_TEST_SUITE(EngineTest, Makers);

TYPED_TEST(EngineTest, BothSidesLearnOfAConnection) {
    this->dial();
    ASSERT_EQ(this->here.connected.size(), 1u);
    EXPECT_EQ(this->here.connected[0].peer, onlyPeer);
    EXPECT_TRUE(this->here.connected[0].dialledHere);
    ASSERT_EQ(this->there.connected.size(), 1u);
    EXPECT_EQ(this->there.connected[0].peer, onlyPeer);
    EXPECT_FALSE(this->there.connected[0].dialledHere);
}

TYPED_TEST(EngineTest, FramesArriveWholeAndInOrderBothWays) {
    this->dial();
    std::vector<Bytes> sent;
    for (size_t i = 0; i < 300; ++i) {
        sent.push_back(bytesOf(headerBytes + i * 7919 % (bodyBytes + 1), static_cast<uint8_t>(i)));
        ASSERT_TRUE(this->send(this->here, this->there, this->mine, sent.back()));
        ASSERT_TRUE(this->send(this->there, this->here, this->yours, sent.back()));
    }
    const auto isThere = [&] { return this->there.frames.size() == 300 && this->here.frames.size() == 300; };
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, isThere));
    EXPECT_EQ(this->there.frames, sent);
    EXPECT_EQ(this->here.frames, sent);
}

TYPED_TEST(EngineTest, WhatWasTakenBeforeACloseArrivesAndThenTheEndIsTold) {
    this->dial();
    const Bytes lastWord = bytesOf(100);
    ASSERT_TRUE(this->send(this->here, this->there, this->mine, lastWord));
    this->diallingEngine->close(this->mine);
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, [&] { return !this->there.disconnected.empty(); }));
    EXPECT_EQ(this->there.frames, std::vector<Bytes>{lastWord});
    EXPECT_EQ(this->there.disconnected[0].connection, this->yours);
    EXPECT_TRUE(this->here.disconnected.empty()) << "it was closed from here";
    EXPECT_EQ(this->listener->send(this->yours, lastWord), Carried::gone);
    EXPECT_EQ(this->diallingEngine->send(this->mine, lastWord), Carried::gone);
}

TYPED_TEST(EngineTest, TheOneThatWaitedMayCloseToo) {
    this->dial();
    const Bytes lastWord = bytesOf(100);
    ASSERT_TRUE(this->send(this->there, this->here, this->yours, lastWord));
    this->listener->close(this->yours);
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, [&] { return !this->here.disconnected.empty(); }));
    EXPECT_EQ(this->here.frames, std::vector<Bytes>{lastWord});
    EXPECT_TRUE(this->there.disconnected.empty());
}

TYPED_TEST(EngineTest, WhatWasTakenBeforeACloseArrivesEvenIfTheEngineEndsThen) {
    this->dial();
    const Bytes lastWord = bytesOf(100);
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(this->send(this->there, this->here, this->yours, lastWord));
    this->listener->close(this->yours);
    this->listener.reset();
    ASSERT_TRUE(listenUntil({&this->here}, [&] { return !this->here.disconnected.empty(); }));
    EXPECT_EQ(this->here.frames.size(), 100u) << this->here.disconnected[0].reason;
}

TYPED_TEST(EngineTest, WhereNobodyIsTheDialFails) {
    this->listener.reset();
    this->diallingEngine->dial(onlyPeer, clockNow());
    ASSERT_TRUE(listenUntil({&this->here}, [&] { return !this->here.failed.empty(); }));
    EXPECT_EQ(this->here.failed[0].peer, onlyPeer);
    EXPECT_NE(this->here.failed[0].reason, "");
    EXPECT_TRUE(this->here.connected.empty());
}

TYPED_TEST(EngineTest, AStrangerIsNeverConnectedAndThePeerStillIs) {
    const std::unique_ptr<Engine> strange = this->maker.stranger();
    Told stranger(*strange);
    strange->dial(onlyPeer, clockNow());
    const auto isTurnedAway = [&] { return !stranger.failed.empty() || !stranger.disconnected.empty(); };
    ASSERT_TRUE(listenUntil({&stranger, &this->there}, isTurnedAway));
    EXPECT_TRUE(this->there.connected.empty());
    this->dial();
    EXPECT_EQ(this->there.connected.size(), 1u);
}

TYPED_TEST(EngineTest, WhoeverDoesNotReadIsSentNoMoreAfterAWhileAndLosesNothing) {
    this->dial();
    const Bytes frame = bytesOf(frameBytes);
    constexpr size_t most = 100000;  // 1.6 GB, which nobody should have taken
    size_t taken = 0;
    while (taken < most && this->diallingEngine->send(this->mine, frame) == Carried::taken) {
        ++taken;
        while (this->diallingEngine->next(clockNow())) {
        }
    }
    EXPECT_LT(taken, most);
    EXPECT_EQ(this->diallingEngine->send(this->mine, frame), Carried::later);
    const auto isThere = [&] { return this->there.frames.size() >= taken; };
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, isThere));
    EXPECT_TRUE(this->send(this->here, this->there, this->mine, frame));
}

TYPED_TEST(EngineTest, TheEndOfTheOneThatWaitedIsTold) {
    this->dial();
    this->listener.reset();
    ASSERT_TRUE(listenUntil({&this->here}, [&] { return !this->here.disconnected.empty(); }));
    EXPECT_EQ(this->here.disconnected[0].connection, this->mine);
}

TYPED_TEST(EngineTest, TheEndOfTheOneThatDialledIsToldToWhoeverSendsToIt) {
    this->dial();
    this->diallingEngine.reset();
    const auto isTold = [&] {
        this->listener->send(this->yours, bytesOf(100));
        this->there.listen();
        return !this->there.disconnected.empty();
    };
    ASSERT_TRUE(listenUntil({&this->there}, isTold));
    EXPECT_EQ(this->there.disconnected[0].connection, this->yours);
}

TYPED_TEST(EngineTest, TwoConnectionsOfAPeerAreKeptApart) {
    this->dial();
    this->diallingEngine->dial(onlyPeer, clockNow());
    const auto areTwo = [&] { return this->here.connected.size() == 2 && this->there.connected.size() == 2; };
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, areTwo));
    EXPECT_NE(this->there.connected[0].connection, this->there.connected[1].connection);
    EXPECT_NE(this->here.connected[0].connection, this->here.connected[1].connection);
    this->diallingEngine->close(this->mine);
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, [&] { return !this->there.disconnected.empty(); }));
    EXPECT_EQ(this->there.disconnected[0].connection, this->yours);
    ASSERT_TRUE(this->send(this->here, this->there, this->here.connected[1].connection, bytesOf(50)));
    ASSERT_TRUE(listenUntil({&this->here, &this->there}, [&] { return !this->there.frames.empty(); }));
    EXPECT_EQ(this->there.disconnected.size(), 1u);
}

}  // namespace
