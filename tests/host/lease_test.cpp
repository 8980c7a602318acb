// Where pages are found for what is leased, and how seldom it is looked for those who have died.

#include "host/pool/lease.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>

#include "host/arena/hunt_table.h"
#include "host/arena/runs.h"
#include "tests/host/interposed.h"
#include "tests/host/pool_fixture.h"
#include "tests/kit/witness.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;

class GapsOfPagesTest : public TightTest {
protected:
    static constexpr SizeClassId sizeClass{20};  // a run of several pages
    static constexpr uint32_t pages = sizeClasses[sizeClass].pages;
    static_assert(pages > 2, "so a gap may be too short");

    GapsOfPagesTest() {
        arena.header().pagesUsed.storeRelaxed(arena.pageCount());
        EXPECT_EQ(arena.usedPages(), arena.pageCount());
        forgetGaps(arena);
    }
    void TearDown() override {
        setPages(used, arena.pageCount(), 0);
        forgetGaps(arena);
        TightTest::TearDown();
    }

    void setPages(uint32_t first, uint32_t end, uint32_t entry) const {
        for (uint32_t page = first; page < end; ++page) arena.pageEntry(PageIndex{page}).storeRelaxed(entry);
    }

    /// The page where a run was cut; none when there was no gap.
    uint32_t cut() const {
        const DomainLock lock(*joined);
        const lease::Chain chain = lease::fromFreshPages(lock, one.spid, sizeClass, 1);
        share::remove(slotOf(one.spid), one.spid, Lines{chain.blocks * linesOfClass(sizeClass)});
        return chain.empty() ? none : pageOf(chain.head) - arena.filePageOf(PageIndex{0});
    }

    static constexpr uint32_t none = ~0u;
    const uint32_t used = 2;  // by one and two
};

TEST_F(GapsOfPagesTest, AreFoundWhereverTheyLieAndWhereverTheSearchBegins) {
    std::mt19937 random(3);
    const uint32_t count = arena.pageCount();
    for (int round = 0; round < 300; ++round) {
        const uint32_t length = pages - 1 + static_cast<uint32_t>(random() % 3);
        const uint32_t start = used + static_cast<uint32_t>(random() % (count - used - length + 1));
        const auto hint = static_cast<uint32_t>(round % 2 == 0 ? random() % (2 * count) : start + random() % length);
        setPages(used, count, makePageEntry(SizeClassId{0}, 0));
        setPages(start, start + length, 0);
        arena.header().longestGap.storeRelaxed(count);
        arena.header().gapHint.storeRelaxed(hint);
        const uint32_t found = cut();
        EXPECT_EQ(found != none, length >= pages) << start << " " << hint;
        if (found == none) continue;
        EXPECT_GE(found, start);
        EXPECT_LE(found + pages, start + length);
        EXPECT_EQ(cut(), none);
    }
}

TEST_F(GapsOfPagesTest, AreNotLookedForAgainWhereNoneWasUntilSomeMayBe) {
    const linxtest::DisorderAllowed allowed;
    setPages(used, arena.pageCount(), makePageEntry(SizeClassId{0}, 0));
    arena.header().longestGap.storeRelaxed(arena.pageCount());
    EXPECT_EQ(cut(), none);
    setPages(100, 100 + pages, 0);
    EXPECT_EQ(cut(), none);
    forgetGaps(arena);
    EXPECT_EQ(cut(), 100u);
}

TEST_F(GapsOfPagesTest, AreUsedOneBehindTheOther) {
    const linxtest::DisorderAllowed allowed;
    arena.header().longestGap.storeRelaxed(arena.pageCount());
    arena.header().gapHint.storeRelaxed(0);
    const uint32_t first = cut();
    for (uint32_t i = 1; i < 20; ++i) EXPECT_EQ(cut(), first + i * pages);
    // What became free before that is used when the search has come round.
    setPages(first, first + pages, 0);
    EXPECT_EQ(cut(), first + 20 * pages);
    uint32_t next = cut();
    while (next != none && next != first) next = cut();
    EXPECT_EQ(next, first);
}

class LookingForTheDeadTest : public linxtest::ArenaDomainTest {
protected:
    static constexpr int times = 200;

    void TearDown() override {
        linxtest::interposed::reset();
        one.close();
        ArenaDomainTest::TearDown();
    }

    /// Whoever looks for the dead asks everybody whether he lives.
    std::string doorbellOfOne() const {
        char doorbell[16];
        std::snprintf(doorbell, sizeof doorbell, "bell.%08x", LinxSpid{one.spid});
        return domain.pathOf(doorbell);
    }

    KnownEndpoint one{"one"};
};

TEST_F(LookingForTheDeadTest, IsNotDoneForEveryHuntThatIsRefused) {
    std::vector<std::unique_ptr<KnownEndpoint>> hunters;
    for (int i = 0; i < 4; ++i) {
        hunters.push_back(std::make_unique<KnownEndpoint>("hunter" + std::to_string(i)));
        for (uint32_t k = 0; k < huntsOfOne; ++k) ASSERT_EQ(linx_hunt(*hunters.back(), "absent", nullptr), 0);
    }
    {
        const linxtest::Witness witness(doorbellOfOne(), IN_OPEN | IN_CLOSE);
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(linx_hunt(*hunters[0], "absent", nullptr), -1);
            ASSERT_EQ(errno, ENOSPC);
        }
        EXPECT_EQ(witness.count(), 0u) << "they are all its own";
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(linx_hunt(one, "absent", nullptr), -1);
            ASSERT_EQ(errno, ENOSPC);
        }
        EXPECT_LT(witness.count(), times / 2u);
    }
    hunters.clear();
    EXPECT_EQ(linx_hunt(one, "absent", nullptr), 0);
}

TEST_F(LookingForTheDeadTest, IsNotDoneForEveryEndpointThatIsRefused) {
    linxtest::interposed::atReserve = [](int64_t, int64_t) { return ENOSPC; };
    std::vector<LINX*> others;
    while (LINX* linx = linx_open(std::to_string(others.size()).c_str(), 0, nullptr)) others.push_back(linx);
    EXPECT_EQ(errno, ENOMEM);
    {
        const linxtest::Witness witness(doorbellOfOne(), IN_OPEN | IN_CLOSE);
        for (int i = 0; i < times; ++i) ASSERT_EQ(linx_open("more", 0, nullptr), nullptr);
        EXPECT_LT(witness.count(), times / 2u);
    }
    for (LINX* linx : others) EXPECT_EQ(linx_close(linx), 0);
}

}  // namespace
}  // namespace linx
