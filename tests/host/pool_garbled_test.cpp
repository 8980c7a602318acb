// Free blocks whose links and owners somebody scribbles over: whoever they belong to loses them, and nothing else.

#include <algorithm>
#include <cerrno>

#include "tests/host/interposed.h"
#include "tests/host/pool_fixture.h"

namespace linx {
namespace {

class PoolGarbledTest : public PoolTest {
protected:
    static constexpr uint32_t size = 1000;

    /// Blocks that have come back to the list of an endpoint, the head first.
    std::vector<Block*> freeBlocks(LINX* linx, size_t count) const {
        std::vector<LinxSignal*> signals;
        while (signals.size() < count) signals.push_back(linx_alloc(linx, size, 1));
        std::vector<Block*> blocks;
        for (LinxSignal* signal : signals) blocks.insert(blocks.begin(), blockOf(signal));
        freeAll(linx, signals);
        return blocks;
    }

    void link(Block* block, Block* next) const { block->next.storeRelaxed(arena.refOf(next)); }

    /// Is not given out by an endpoint whose first free block leads there.
    void expectNotFollowed(Block* stranger) const {
        Block* first = freeBlocks(one, 2)[0];
        link(first, stranger);
        std::vector<LinxSignal*> signals = {linx_alloc(one, size, 1)};
        EXPECT_EQ(blockOf(signals[0]), first);
        for (int i = 0; i < 3; ++i) signals.push_back(linx_alloc(one, size, 1));
        EXPECT_EQ(std::count(signals.begin(), signals.end(), &stranger->signal), 0);
        freeAll(one, signals);
    }
};

/// Whoever got it as one of that size would write over its neighbour.
TEST_F(PoolGarbledTest, ALinkToASmallerBlockIsNotFollowed) {
    LinxSignal* signal = linx_alloc(one, 4, 1);
    Block* smaller = blockOf(signal);
    linx_free_buf(one, &signal);
    expectNotFollowed(smaller);
}

TEST_F(PoolGarbledTest, ALinkToABlockThatSomebodyHoldsIsNotFollowed) {
    LinxSignal* held = linx_alloc(one, size, 1);
    expectNotFollowed(blockOf(held));
    linx_free_buf(one, &held);
}

TEST_F(PoolGarbledTest, ALinkToAFreeBlockOfAnotherIsNotFollowed) {
    LinxSignal* signal = linx_alloc(two, size, 1);
    Block* ofTwo = blockOf(signal);
    linx_free_buf(two, &signal);
    expectNotFollowed(ofTwo);
}

TEST_F(PoolGarbledTest, ARingOfFreeBlocksIsGivenOutOnce) {
    const std::vector<Block*> blocks = freeBlocks(one, 2);
    link(blocks[1], blocks[0]);
    std::vector<LinxSignal*> signals;
    for (int i = 0; i < 100; ++i) signals.push_back(linx_alloc(one, size, 1));
    EXPECT_EQ(std::count(signals.begin(), signals.end(), &blocks[0]->signal), 1);
    EXPECT_EQ(std::count(signals.begin(), signals.end(), &blocks[1]->signal), 1);
    freeAll(one, signals);
}

TEST_F(PoolGarbledTest, ARingOfBlocksThatAreNotFreeIsLeft) {
    const std::vector<Block*> blocks = freeBlocks(one, 3);
    link(blocks[2], blocks[0]);
    for (Block* block : blocks) block->owner.storeRelaxed(heldBy(two.spid));
    EXPECT_TRUE(canAllocate(one, size));
    for (Block* block : blocks) {
        LinxSignal* signal = &block->signal;
        EXPECT_EQ(linx_free_buf(two, &signal), 0);
    }
}

TEST_F(PoolGarbledTest, AListThatIsCutOffIsFoundAgainWhenItsEndpointEnds) {
    const std::vector<Block*> blocks = freeBlocks(one, 3);
    for (const Ref next : {Ref::none, Ref{1}, arena.refOf(blocks[1]) + 1}) {
        blocks[0]->next.storeRelaxed(next);
        EXPECT_TRUE(canAllocate(one, size));
    }
    std::vector<LinxSignal*> signals;
    for (int i = 0; i < 100; ++i) signals.push_back(linx_alloc(one, size, 1));
    freeAll(one, signals);
    one.close();
    EXPECT_EQ(homeOf(&blocks[1]->signal), noHome);
    EXPECT_EQ(homeOf(&blocks[2]->signal), noHome);
}

TEST_F(PoolGarbledTest, ABlockThatItsHomeCannotBeGivenBackStaysWithWhoeverFreesIt) {
    LinxSignal* signal = pass(one, two, two.spid, size);
    const Block* block = blockOf(signal);
    WordOf<StackHead>& returned = slotOf(one.spid).returned;
    const StackHead before = returned.loadRelaxed();
    returned.storeRelaxed(stack::headOf(stack::refOf(before), 1u << refBits));  // bits in which no head has any
    EXPECT_EQ(linx_free_buf(two, &signal), 0);
    EXPECT_EQ(block->owner.loadRelaxed(), OwnerWord::free);
    returned.storeRelaxed(before);
}

TEST_F(PoolGarbledTest, AnAllocationWhoseLeaseIsScribbledOverSaysWhyItFailed) {
    std::vector<Block*> garbled;
    linxtest::interposed::atLock = [&] {
        forEachBlock(arena, [&](BlockRef block) {
            if (block->home.loadRelaxed() != one.spid || block->owner.loadRelaxed() != OwnerWord::free) return;
            block->owner.storeRelaxed(heldBy(two.spid));
            garbled.push_back(&*block);
        });
        return 0;
    };
    errno = 0;
    LinxSignal* signal = linx_alloc(one, size, 1);
    linxtest::interposed::reset();
    EXPECT_EQ(signal, nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_FALSE(garbled.empty());
    for (Block* block : garbled) block->owner.storeRelaxed(OwnerWord::free);
}

}  // namespace
}  // namespace linx
