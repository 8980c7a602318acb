#include "host/arena/share.h"

#include <gtest/gtest.h>

#include <thread>

namespace linx {
namespace {

class ShareTest : public ::testing::Test {
protected:
    static constexpr Spid earlier = makeSpid(SlotIndex{5}, 7);
    static constexpr Spid spid = makeSpid(SlotIndex{5}, 8);

    ShareTest() { share::begin(slot, spid); }

    Slot slot{};
};

TEST_F(ShareTest, BeginsWithNothing) {
    share::add(slot, Lines{10});
    share::begin(slot, spid);
    EXPECT_EQ(share::linesOf(slot), 0u);
}

TEST_F(ShareTest, IsWhatWasAddedAndNotRemoved) {
    share::add(slot, Lines{1000});
    share::add(slot, Lines{1});
    share::remove(slot, spid, Lines{400});
    EXPECT_EQ(share::linesOf(slot), 601u);
}

TEST_F(ShareTest, IsNotThatOfTheSlotsEarlierUser) {
    share::add(slot, Lines{1000});
    share::remove(slot, earlier, Lines{400});
    EXPECT_EQ(share::linesOf(slot), 1000u);
}

TEST_F(ShareTest, DoesNotFallBelowNothing) {
    share::add(slot, Lines{10});
    share::remove(slot, spid, Lines{11});
    EXPECT_EQ(share::linesOf(slot), 0u);
    share::add(slot, Lines{5});
    EXPECT_EQ(share::linesOf(slot), 5u);
}

TEST_F(ShareTest, HoldsAllLinesOfTheLargestArena) {
    share::add(slot, Lines{share::lineMask});
    EXPECT_EQ(share::linesOf(slot), share::lineMask);
    share::remove(slot, spid, Lines{share::lineMask - 1});
    EXPECT_EQ(share::linesOf(slot), 1u);
}

TEST_F(ShareTest, IsRightAfterManyHaveChangedItAtOnce) {
    constexpr uint32_t times = 20000;
    share::add(slot, Lines{2 * times});
    std::thread one([&] {
        for (uint32_t i = 0; i < times; ++i) share::remove(slot, spid, Lines{1});
    });
    std::thread other([&] {
        for (uint32_t i = 0; i < times; ++i) share::remove(slot, spid, Lines{1});
    });
    for (uint32_t i = 0; i < times; ++i) share::add(slot, Lines{3});
    one.join();
    other.join();
    EXPECT_EQ(share::linesOf(slot), 3 * times);
}

}  // namespace
}  // namespace linx
