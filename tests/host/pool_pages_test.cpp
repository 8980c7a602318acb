// Pages whose blocks have gone to others and come back as blocks of another size.

#include "host/pool/lease.h"
#include "tests/host/pool_fixture.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;

constexpr uint32_t small = 4;
constexpr uint32_t larger = 100;
constexpr uint32_t smallInPage = sizeClasses[classForLines(linesForSignal(small))].blocks;
constexpr uint32_t largerInPage = sizeClasses[classForLines(linesForSignal(larger))].blocks;

class PoolPagesTest : public TightTest {
protected:
    /// All small blocks that one had become pages again, without its doing.
    void loseSmallPage() {
        for (uint32_t i = 0; i < smallInPage; ++i) ASSERT_NE(pass(one, two, two.spid, small), nullptr);
        two.close();
        const DomainLock lock(*joined);
        ASSERT_EQ(lease::reclaim(lock, Lines{1}), lease::Reclaimed::everything);
        ASSERT_EQ(leasedLines(one.spid), 0u);
        ASSERT_EQ(arena.pageEntry(PageIndex{0}).loadRelaxed(), 0u);
        // Nothing is fresh any more: what is leased next lies where the small ones lay.
        arena.header().pagesUsed.storeRelaxed(arena.pageCount());
    }

    std::vector<LinxSignal*> allocatePage(LINX* linx) {
        std::vector<LinxSignal*> signals;
        for (uint32_t i = 0; i < largerInPage; ++i) {
            signals.push_back(linx_alloc(linx, larger, 1));
            EXPECT_EQ(pageOf(refOf(signals.back())), arena.filePageOf(PageIndex{0})) << i;
        }
        return signals;
    }
};

TEST_F(PoolPagesTest, APageThatIsLeasedAnewForAnotherSizeIsUsedWhole) {
    loseSmallPage();
    std::vector<LinxSignal*> signals = allocatePage(one);
    EXPECT_EQ(leasedLines(one.spid), linesPerPage);
    freeAll(one, signals);
}

TEST_F(PoolPagesTest, APageWhoseBlocksCameFromAnEndpointThatHasEndedIsUsedWhole) {
    KnownEndpoint three("three");
    loseSmallPage();
    for (LinxSignal* signal : allocatePage(three)) ASSERT_EQ(linx_send(three, &signal, one.spid), 0);
    three.close();
    std::vector<LinxSignal*> signals;
    LinxSignal* signal = nullptr;
    while (linx_receive_w_tmo(one, &signal, 0, anySignal) > 0) signals.push_back(signal);
    freeAll(one, signals);
    EXPECT_EQ(leasedLines(one.spid), linesPerPage);
    signals = allocatePage(one);
    EXPECT_EQ(leasedLines(one.spid), linesPerPage);
    freeAll(one, signals);
}

}  // namespace
}  // namespace linx
