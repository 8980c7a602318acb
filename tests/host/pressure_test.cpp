// Memory has run out that somebody keeps without need: it is given up, and found, whenever that comes.

#include <cerrno>
#include <cstdio>

#include "host/pool/lease.h"
#include "tests/host/interposed.h"
#include "tests/host/pool_fixture.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;

using linxtest::Linx;

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
        // Nobody else has anything to give, and it will not be looked for it for a while.
        interposed::atNap = [] {};
        EXPECT_EQ(errno, ENOMEM);
        arena.header().reclaiming.at.storeRelaxed(0);
        arena.header().reclaiming.took.storeRelaxed(0);
    }
    void TearDown() override {
        interposed::reset();
        freeAll(one, ofOne);
        freeAll(two, ofTwo);
        freeAll(asker, ofAsker);
        keeper.reset();
        asker.reset();
        TightTest::TearDown();
    }

    /// As often as it is asked, the keeper looks what there is to do, as in a poll loop of its own.
    void look() { EXPECT_EQ(receiveNumber(keeper), 0u); }

    void expectAllocation(uint32_t size) {
        LinxSignal* signal = linx_alloc(asker, size, 1);
        EXPECT_NE(signal, nullptr);
        if (signal != nullptr) ofAsker.push_back(signal);
    }
    void expectRefusal(uint32_t size) {
        EXPECT_EQ(linx_alloc(asker, size, 1), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }

    Linx keeper{"keeper"};
    Linx asker{"asker"};
    std::vector<LinxSignal*> ofOne;
    std::vector<LinxSignal*> ofTwo;
    std::vector<LinxSignal*> ofAsker;
};

TEST_F(PressureTest, WhatIsGivenUpWhileOthersAreStillBeingAskedIsFound) {
    const Linx last("last");
    char bell[16];
    std::snprintf(bell, sizeof bell, "bell.%08x", last.spid);
    interposed::atOpen = [&](const char* name) {
        if (std::string(name) == bell) look();
    };
    expectAllocation(keptSize);
}

TEST_F(PressureTest, WhatIsGivenUpInAnotherSizeIsFound) {
    interposed::atNap = [&] { look(); };
    expectAllocation(largeSize);
}

TEST_F(PressureTest, WhatIsGivenUpTooLateIsFoundByTheNext) {
    expectRefusal(largeSize);
    look();
    expectAllocation(largeSize);
}

TEST_F(PressureTest, WhoAsksAfterAnotherWaitsForTheSame) {
    Linx other("other");
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

}  // namespace
}  // namespace linx
