// Where there is no private memory, or no descriptor, and none comes: what is tried again comes to an end.

#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "host/recovery/retire.h"
#include "tests/host/interposed.h"
#include "tests/host/pool_fixture.h"
#include "tests/kit/child.h"
#include "tests/kit/failing_new.h"
#include "tests/kit/few_descriptors.h"

namespace linx {
namespace {

using linxtest::everyNewFails;
using linxtest::KnownEndpoint;
namespace interposed = linxtest::interposed;

/// A process with these endpoints, to be killed.
class Doomed : public Child {
public:
    explicit Doomed(const std::vector<std::string>& names)
        : Child([&](Line& parent) {
              for (const std::string& name : names) linx_open(name.c_str(), 0, nullptr);
              parent.tell();
              pause();
          }) {
        hear();
    }
};

class PersistenceTest : public TightTest {
protected:
    void TearDown() override {
        everyNewFails = false;
        {
            const DomainLock lock(*joined);
            reapAllDead(lock);
        }
        TightTest::TearDown();
    }

    /// Hunts for one that has died, while nothing can be had. Afterwards it is sought, or it was an error.
    void huntForTheDead(const std::string& name) {
        LinxSignal* signal = linx_alloc(one, 4, 7);
        ASSERT_NE(signal, nullptr);
        everyNewFails = true;
        const int result = linx_hunt(one, name.c_str(), &signal);
        const int failure = errno;
        everyNewFails = false;
        EXPECT_EQ(signal, nullptr);
        if (result != 0) {
            EXPECT_EQ(failure, ENOMEM);
        }
        const KnownEndpoint next(name);
        EXPECT_EQ(receiveNumber(one), result == 0 ? 7u : 0u);
    }

    static LinxSpid found(LINX* linx, const std::string& name) {
        EXPECT_EQ(linx_hunt(linx, name.c_str(), nullptr), 0);
        LinxSignal* signal = nullptr;
        EXPECT_EQ(linx_receive_w_tmo(linx, &signal, 0, anySignal), 4);
        const LinxSpid spid = linx_sender(linx, &signal);
        linx_free_buf(linx, &signal);
        return spid;
    }
};

TEST_F(PersistenceTest, AHuntForTheDeadEndsWithoutMemory) {
    Doomed doomed({"sought"});
    doomed.kill9();
    huntForTheDead("sought");
}

TEST_F(PersistenceTest, AHuntForADeadPeerEndsWithoutMemory) {
    Doomed doomed({"sought"});
    EXPECT_NE(found(one, "sought"), 0u);
    doomed.kill9();
    huntForTheDead("sought");
}

TEST_F(PersistenceTest, AHuntForADeadPeerWithSupervisionsNeedsNoMemory) {
    Doomed doomed({"sought"});
    const LinxSpid sought = found(one, "sought");
    for (int i = 0; i < 100; ++i) {
        LinxSignal* notice = linx_alloc(one, 4, 9);
        ASSERT_NE(linx_attach(one, &notice, sought), 0u);
    }
    doomed.kill9();
    LinxSignal* signal = linx_alloc(one, 4, 7);
    everyNewFails = true;
    const int hunted = linx_hunt(one, "sought", &signal);
    everyNewFails = false;
    EXPECT_EQ(hunted, 0) << "the dead one's name is free, and the hunt waits for the next";
    EXPECT_EQ(signal, nullptr);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(receiveNumber(one), 9u);
    EXPECT_EQ(receiveNumber(one), 0u);
}

TEST_F(PersistenceTest, WhatIsQueuedIsReceivedThoughThereIsNoMemoryForANotice) {
    constexpr int sent = 8;  // as many as the queue has room for
    Doomed doomed({"peer"});
    LinxSignal* notice = linx_alloc(one, 4, 9);
    ASSERT_NE(linx_attach(one, &notice, found(one, "peer")), 0u);
    for (int i = 0; i < sent; ++i) sendNumber(two, one.spid, 7);
    ASSERT_EQ(receiveNumber(one), 7u);
    doomed.kill9();
    interposed::coarseSecondsAhead = 1;  // so that the next receive looks for ends
    int received = 0;
    everyNewFails = true;
    for (int attempts = 10 * sent; attempts != 0 && receiveNumber(one) == 7; --attempts) ++received;
    everyNewFails = false;
    interposed::reset();
    EXPECT_EQ(received, sent - 1);
    EXPECT_EQ(receiveNumber(one), 0u) << "the notice came behind them: the queue then had room for it";
}

TEST_F(PersistenceTest, AHuntEndsWithoutDescriptors) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the undefined-behaviour sanitizer needs some";
#endif
    Doomed doomed({"sought", "peer", "other"});
    const LinxSpid peer = found(one, "peer");
    found(one, "other");
    LinxSignal* notice = linx_alloc(one, 4, 9);
    ASSERT_NE(linx_attach(one, &notice, peer), 0u);  // does not go for another
    LinxSignal* signal = linx_alloc(one, 4, 7);
    {
        const FewDescriptors none(0);
        EXPECT_EQ(linx_hunt(one, "sought", &signal), 0) << "another peer goes for it";
        EXPECT_EQ(receiveNumber(one), 7u);
    }
    LinxSignal* second = linx_alloc(one, 4, 9);
    ASSERT_NE(linx_attach(one, &second, found(one, "sought")), 0u);
    signal = linx_alloc(one, 4, 7);
    {
        const FewDescriptors none(0);
        EXPECT_EQ(linx_hunt(one, "other", &signal), -1);
        EXPECT_EQ(errno, EMFILE);
        EXPECT_EQ(signal, nullptr);
    }
    doomed.kill9();
    EXPECT_EQ(receiveNumber(one), 9u);
    EXPECT_EQ(receiveNumber(one), 9u);
    EXPECT_EQ(receiveNumber(one), 0u);
}

TEST_F(PersistenceTest, AnAllocationThatIsRefusedEndsWithoutMemoryThoughPeersHaveDied) {
    std::vector<std::string> names;
    for (int i = 0; i < 100; ++i) names.push_back("doomed" + std::to_string(i));
    Doomed doomed(names);
    for (const std::string& name : names) found(one, name);
    std::vector<LinxSignal*> ofOne = allocateAll(one, 60000);
    doomed.kill9();
    everyNewFails = true;
    EXPECT_EQ(linx_alloc(one, 60000, 1), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    everyNewFails = false;
    EXPECT_EQ(linx_alloc(one, 60000, 1), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    // All hundred are reaped by now.
    EXPECT_EQ(arena.header().openEndpoints.loadRelaxed(), 2u);
    freeAll(one, ofOne);
    EXPECT_EQ(receiveNumber(one), 0u);
}

}  // namespace
}  // namespace linx
