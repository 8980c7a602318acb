#include "host/mailbox/take_all_stack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::MemoryArena;

class TakeAllStackTest : public ::testing::Test {
protected:
    TakeAllStackTest() {
        for (uint32_t page = 0; page < MemoryArena::pages; ++page) memory.layRun(page, 0);
    }

    Ref ref(uint32_t number) const { return arena.refOfPage(PageIndex{0}) + number; }
    Ref push(uint32_t number) { return stack::push(head, arena.blockAt(ref(number))); }
    std::vector<uint32_t> chain(Ref from) const {
        std::vector<uint32_t> numbers;
        stack::walk(arena, from, [&](BlockRef block) { numbers.push_back(numberOf(block.ref) - numberOf(ref(0))); });
        return numbers;
    }

    MemoryArena memory;
    Arena arena = memory.arena();
    WordOf<StackHead> head{};
    WordOf<Ref> claim{};
};

TEST_F(TakeAllStackTest, WhatIsTakenIsAllThatWasPushedTheLastFirst) {
    EXPECT_EQ(push(3), stack::empty);
    EXPECT_EQ(push(1), ref(3));
    EXPECT_EQ(push(2), ref(1));
    const Ref taken = stack::claimAll(head, claim, stack::empty);
    EXPECT_EQ(chain(taken), (std::vector<uint32_t>{2, 1, 3}));
    EXPECT_EQ(stack::refOf(head.loadRelaxed()), stack::empty);
}

TEST_F(TakeAllStackTest, WhatIsTakenIsClaimed) {
    push(3);
    push(1);
    const Ref taken = stack::claimAll(head, claim, stack::empty);
    EXPECT_EQ(claim.loadRelaxed(), taken);
}

TEST_F(TakeAllStackTest, AnEmptyStackGivesNothingAndClaimsNothing) {
    EXPECT_EQ(stack::claimAll(head, claim, stack::empty), stack::empty);
    EXPECT_EQ(claim.loadRelaxed(), Ref::none);
}

TEST_F(TakeAllStackTest, AClosedStackRefusesAndStaysClosed) {
    push(1);
    EXPECT_EQ(chain(stack::claimAll(head, claim, stack::closed)), (std::vector<uint32_t>{1}));
    EXPECT_EQ(push(2), stack::closed);
    EXPECT_EQ(stack::refOf(head.loadRelaxed()), stack::closed);
    EXPECT_EQ(stack::claimAll(head, claim, stack::empty), stack::empty);
    EXPECT_EQ(stack::claimAll(head, claim, stack::closed), stack::empty);
    EXPECT_EQ(stack::refOf(head.loadRelaxed()), stack::closed);
}

TEST_F(TakeAllStackTest, AnEmptyStackCanBeClosed) {
    EXPECT_EQ(stack::claimAll(head, claim, stack::closed), stack::empty);
    EXPECT_EQ(push(1), stack::closed);
}

TEST_F(TakeAllStackTest, AWalkGoesRoundACycleAFewTimesAtMost) {
    push(1);
    push(2);
    arena.blockAt(ref(1))->next.storeRelaxed(ref(2));
    EXPECT_EQ(chain(stack::refOf(head.loadRelaxed())), (std::vector<uint32_t>{2, 1}));
    EXPECT_TRUE(stack::holds(arena, head, claim, ref(1)));
    EXPECT_FALSE(stack::holds(arena, head, claim, ref(3)));
    push(3);  // leads into the cycle
    const std::vector<uint32_t> visited = chain(stack::refOf(head.loadRelaxed()));
    EXPECT_LE(visited.size(), 66u);
    EXPECT_EQ(std::vector<uint32_t>(visited.begin(), visited.begin() + 3), (std::vector<uint32_t>{3, 2, 1}));
}

TEST_F(TakeAllStackTest, AWalkEndsAtWhatIsNoBlock) {
    push(1);
    push(2);
    for (const Ref garbage : {Ref{1}, Ref{5}, arena.refOfPage(PageIndex{0}) + ~0u,
                              arena.refOfPage(PageIndex{MemoryArena::pages}), Ref{~0u}}) {
        arena.blockAt(ref(2))->next.storeRelaxed(garbage);
        EXPECT_EQ(chain(stack::refOf(head.loadRelaxed())), (std::vector<uint32_t>{2}));
    }
}

TEST_F(TakeAllStackTest, ABlockIsHeldInTheHeadAndWhileItIsTakenAndNotAfterwards) {
    push(1);
    push(2);
    EXPECT_TRUE(stack::holds(arena, head, claim, ref(1)));
    EXPECT_TRUE(stack::holds(arena, head, claim, ref(2)));
    EXPECT_FALSE(stack::holds(arena, head, claim, ref(3)));
    stack::claimAll(head, claim, stack::closed);
    EXPECT_TRUE(stack::holds(arena, head, claim, ref(1)));
    EXPECT_TRUE(stack::holds(arena, head, claim, ref(2)));
    claim.storeRelaxed(Ref::none);
    EXPECT_FALSE(stack::holds(arena, head, claim, ref(1)));
}

TEST_F(TakeAllStackTest, NothingIsLostAndNothingIsDoubledAmongThreads) {
    constexpr uint32_t each = 10000;
    std::vector<std::thread> pushers;
    for (uint32_t pusher = 0; pusher < 3; ++pusher) {
        pushers.emplace_back([this, pusher] {
            for (uint32_t i = 0; i < each; ++i) {
                arena.blockAt(ref(pusher * each + i))->signal.number = pusher * each + i;
                push(pusher * each + i);
            }
        });
    }
    std::vector<uint32_t> arrived;
    while (arrived.size() != 3 * each) {
        const auto before = static_cast<std::ptrdiff_t>(arrived.size());
        stack::walk(arena, stack::claimAll(head, claim, stack::empty),
                    [&](BlockRef block) { arrived.push_back(block->signal.number); });
        std::reverse(arrived.begin() + before, arrived.end());
    }
    for (std::thread& pusher : pushers) pusher.join();
    EXPECT_EQ(stack::refOf(head.loadRelaxed()), stack::empty);
    uint32_t nextOf[3] = {};
    for (const uint32_t number : arrived) EXPECT_EQ(number % each, nextOf[number / each]++);
}

}  // namespace
}  // namespace linx
