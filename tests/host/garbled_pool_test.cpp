// An endpoint's own free blocks, and words that somebody has scribbled over in them.

#include "tests/host/endpoints.h"

namespace linx {
namespace {

using linxtest::Linx;

constexpr uint32_t size = 100;
constexpr uint32_t smaller = 4;

/// The first of an endpoint's free blocks, and signals of the same size that it gives out from then on.
class GarbledPoolTest : public linxtest::ArenaDomainTest {
protected:
    GarbledPoolTest() : first(&allocateAndFree()) {}

    void TearDown() override {
        for (LinxSignal* signal : taken) linx_free_buf(endpoint, &signal);
        endpoint.reset();
        other.reset();
        ArenaDomainTest::TearDown();
    }

    Block& allocateAndFree() const {
        LinxSignal* signal = linx_alloc(endpoint, size, 1);
        Block& block = *blockOf(signal);
        linx_free_buf(endpoint, &signal);
        return block;
    }

    /// Of the class of the endpoint's others.
    Ref take(LINX* from, uint32_t bytes = size) {
        LinxSignal* signal = linx_alloc(from, bytes, 1);
        EXPECT_NE(signal, nullptr);
        if (from == endpoint) taken.push_back(signal);
        return refOf(signal);
    }

    /// What comes behind the first block is not `wanted`, though the first leads there; and nothing is lost but what
    /// cannot be found any more.
    void expectNotFollowed(Ref wanted) {
        first->next.storeRelaxed(wanted);
        EXPECT_EQ(take(endpoint), arena.refOf(first));
        for (int i = 0; i < 3; ++i) EXPECT_NE(take(endpoint), wanted);
    }

    Linx endpoint{"endpoint"};
    Linx other{"other"};
    Block* first;
    std::vector<LinxSignal*> taken;
};

TEST_F(GarbledPoolTest, ALinkToWhatIsNoBlockIsNotFollowed) {
    expectNotFollowed(arena.refOf(first) + 1);
}

TEST_F(GarbledPoolTest, ALinkOutOfTheArenaIsNotFollowed) {
    expectNotFollowed(~0u);
}

/// Whoever got it as one of that size would write over its neighbour.
TEST_F(GarbledPoolTest, ALinkToASmallerBlockIsNotFollowed) {
    LinxSignal* signal = linx_alloc(endpoint, smaller, 1);
    const Ref ref = refOf(signal);
    linx_free_buf(endpoint, &signal);
    expectNotFollowed(ref);
}

TEST_F(GarbledPoolTest, ALinkToABlockThatSomebodyHoldsIsNotFollowed) {
    const Ref held = take(endpoint);
    first = &allocateAndFree();
    expectNotFollowed(held);
}

TEST_F(GarbledPoolTest, ALinkToAFreeBlockOfAnotherIsNotFollowed) {
    LinxSignal* signal = linx_alloc(other, size, 1);
    const Ref ref = refOf(signal);
    linx_free_buf(other, &signal);
    expectNotFollowed(ref);
}

}  // namespace
}  // namespace linx
