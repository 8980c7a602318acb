// Memory has run out that somebody keeps without need: it is given up, and found, whenever that comes.

#include <cerrno>
#include <cstdio>

#include "host/pool/lease.h"
#include "tests/host/interposed.h"
#include "tests/host/pool_fixture.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;

using linxtest::KnownEndpoint;

constexpr uint32_t keptSize = 1000;
constexpr uint32_t largeSize = 55000;

/// Four mebibytes, of which `keeper` keeps some for itself and others hold the rest.
class PressureTest : public TightTest {
protected:
    void SetUp() override {
        std::vector<LinxSignal*> signals;
        while (leasedLines(keeper.spid) + linesOf(keptSize) <= lease::keptBy(arena)) {
            signals.push_back(linx_alloc(keeper, keptSize, 1));
        }
        freeAll(keeper, signals);
        EXPECT_EQ(receiveNumber(keeper), 0u);  // its descriptor is not readable
        ofOne = allocateAll(one, 60000);
        ofTwo = allocateAll(two, 60000);
        ofAsker = allocateAll(asker, 60000);
        for (LinxSignal* signal : allocateAll(asker, keptSize)) ofAsker.push_back(signal);
        EXPECT_GE(leasedLines(keeper.spid), linesOf(largeSize));
        // As if nobody had been asked so far: it is due.
        interposed::atNap = [] {};
        arena.header().pressure.storeRelaxed(0);
        arena.header().pressureMet.storeRelaxed(0);
        arena.header().reclaiming.at.storeRelaxed(0);
        arena.header().reclaiming.took.storeRelaxed(0);
    }
    void TearDown() override {
        interposed::reset();
        descriptor.reset();
        freeAll(one, ofOne);
        freeAll(two, ofTwo);
        freeAll(asker, ofAsker);
        keeper.close();
        asker.close();
        TightTest::TearDown();
    }

    /// As often as it is asked, the keeper looks what there is to do, as in a poll loop of its own.
    void look() { EXPECT_EQ(receiveNumber(keeper), 0u); }
    bool hasGivenUp() const { return leasedLines(keeper.spid) < linesOf(keptSize); }

    void expectAllocation(uint32_t size) {
        LinxSignal* signal = linx_alloc(asker, size, 1);
        EXPECT_NE(signal, nullptr);
        if (signal != nullptr) ofAsker.push_back(signal);
    }
    void expectRefusal(uint32_t size) {
        EXPECT_EQ(linx_alloc(asker, size, 1), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }

    bool isReadable(int milliseconds) { return ::isReadable(descriptor.get(), milliseconds); }

    KnownEndpoint keeper{"keeper"};
    ScopedDescriptor descriptor{linx_get_descriptor(keeper)};
    KnownEndpoint asker{"asker"};
    std::vector<LinxSignal*> ofOne;
    std::vector<LinxSignal*> ofTwo;
    std::vector<LinxSignal*> ofAsker;
};

TEST_F(PressureTest, WhatIsGivenUpWhileOthersAreStillBeingAskedIsFound) {
    const interposed::StandingClock standing;  // however long the test takes, others are still to be waited for
    const KnownEndpoint last("last");
    char doorbell[16];
    std::snprintf(doorbell, sizeof doorbell, "bell.%08x", LinxSpid{last.spid});
    interposed::atOpen = [&](const char* name) {
        if (std::string(name) == doorbell) look();
    };
    expectAllocation(keptSize);
}

TEST_F(PressureTest, WhatIsGivenUpInAnotherSizeIsFound) {
    const interposed::StandingClock standing;
    interposed::atNap = [&] { look(); };
    expectAllocation(largeSize);
}

TEST_F(PressureTest, OfWhatIsGivenUpOneBlockIsTakenAndNoMoreIsWaitedFor) {
    const interposed::StandingClock standing;
    int naps = 0;
    interposed::atNap = [&] {
        if (++naps == 2) look();
    };
    const uint32_t before = leasedLines(asker.spid);
    expectAllocation(keptSize);
    EXPECT_EQ(leasedLines(asker.spid), before + linesOf(keptSize));
    EXPECT_EQ(naps, 2);
}

TEST_F(PressureTest, WhatIsGivenUpTooLateIsFoundByTheNext) {
    expectRefusal(largeSize);
    look();
    expectAllocation(largeSize);
}

TEST_F(PressureTest, WhoAsksAfterAnotherWaitsForTheSame) {
    const interposed::StandingClock standing;
    KnownEndpoint other("other");
    LinxSignal* ofOther = nullptr;
    int naps = 0;
    interposed::atNap = [&] {
        if (++naps == 1) {
            ofOther = linx_alloc(other, keptSize, 1);
        } else {
            look();
        }
    };
    expectAllocation(keptSize);
    ASSERT_NE(ofOther, nullptr);
    EXPECT_EQ(linx_free_buf(other, &ofOther), 0);
}

TEST_F(PressureTest, WhoIsAskedTogetherWithASignalGivesUpAfterIt) {
    sendNumber(two, keeper.spid, 7);
    expectRefusal(largeSize);
    ASSERT_TRUE(isReadable(0));
    EXPECT_EQ(receiveNumber(keeper), 7u);
    EXPECT_FALSE(isReadable(0));
    EXPECT_TRUE(hasGivenUp());
}

TEST_F(PressureTest, WhoIsAskedWhileItReceivesASignalGivesUpAfterIt) {
    sendNumber(two, keeper.spid, 7);
    interposed::atRead = [&] { expectRefusal(largeSize); };  // the keeper looks into its doorbell
    EXPECT_EQ(receiveNumber(keeper), 7u);
    interposed::atRead = nullptr;
    EXPECT_FALSE(isReadable(0));
    EXPECT_TRUE(hasGivenUp());
}

TEST_F(PressureTest, WhoFindsTheLockTakenTriesAgainWhileItWaits) {
    expectRefusal(largeSize);
    int refusals = 100;
    interposed::atLock = [&] { return refusals-- > 0 ? EWOULDBLOCK : 0; };
    interposed::atSleep = [&] {
        if (!hasGivenUp()) return;
        interposed::atSleep = nullptr;
        sendNumber(two, keeper.spid, 7);
    };
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(keeper, &signal, 20000, anySignal), 4);
    EXPECT_EQ(linx_free_buf(keeper, &signal), 0);
}

TEST_F(PressureTest, WhoFindsTheLockTakenIsCalledAgainByItsDescriptor) {
    expectRefusal(largeSize);
    int refusals = 100;
    interposed::atLock = [&] { return refusals-- > 0 ? EWOULDBLOCK : 0; };
    for (int looks = 0; looks < 100 && !hasGivenUp(); ++looks) {
        ASSERT_TRUE(isReadable(20000));
        look();
    }
    EXPECT_TRUE(hasGivenUp());
    EXPECT_FALSE(isReadable(0));
}

TEST_F(PressureTest, WhoNeverFindsItsQueueEmptyGivesUp) {
    for (int i = 0; i < 10; ++i) sendNumber(two, keeper.spid, 7);
    EXPECT_EQ(receiveNumber(keeper), 7u);
    expectRefusal(largeSize);
    const uint32_t sevens[] = {1, 7};
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(keeper, &signal, 0, sevens), 4);
    EXPECT_TRUE(hasGivenUp());
    EXPECT_EQ(linx_free_buf(keeper, &signal), 0);
    while (receiveNumber(keeper) != 0) {
    }
}

}  // namespace
}  // namespace linx
