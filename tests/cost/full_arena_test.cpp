// Allocations that fail, however many and by however many endpoints, do not have all of the arena looked through
// each.

#include <cerrno>

#include "tests/cost/looks.h"
#include "tests/host/endpoints.h"
#include "tests/kit/small_arena.h"

namespace linx {
namespace {

using cost::looksOf;
using linxtest::KnownEndpoint;

class FullArenaCost : private linxtest::SmallArena, public linxtest::ArenaDomainTest {
protected:
    static bool canAllocate(LINX* linx, uint32_t size) {
        LinxSignal* signal = linx_alloc(linx, size, 1);
        return signal != nullptr && linx_free_buf(linx, &signal) == 0;
    }
};

TEST_F(FullArenaCost, ManyWhoTryAgainAndAgainLookThroughItNowAndThen) {
    constexpr uint32_t small = 4;
    constexpr uint32_t large = 10000;
    constexpr uint32_t rounds = 500;
    std::vector<std::unique_ptr<KnownEndpoint>> fillers;
    for (int i = 0; i < 3; ++i) {
        fillers.push_back(std::make_unique<KnownEndpoint>("filler" + std::to_string(i)));
        while (linx_alloc(*fillers.back(), small, 1) != nullptr) {
        }
    }
    std::vector<std::unique_ptr<KnownEndpoint>> retriers;
    for (int i = 0; i < 4; ++i) retriers.push_back(std::make_unique<KnownEndpoint>("retrier" + std::to_string(i)));
    uint64_t looks = 0;
    for (uint32_t round = 0; round < rounds; ++round) {
        for (const auto& retrier : retriers) {
            ASSERT_EQ(linx_close(linx_open("passer-by", 0, nullptr)), 0);  // something has changed since
            looks += looksOf([&] { EXPECT_FALSE(canAllocate(*retrier, large)); });
        }
    }
    const uint64_t lines = arena.usedPages() * linesPerPage;
    EXPECT_LT(looks, rounds * retriers.size() * lines);
}

TEST_F(FullArenaCost, WhoEndsWithWhatHasComeBackDoesNotHaveItLookedFor) {
    constexpr uint32_t small = 4;
    const KnownEndpoint filler("filler");
    while (linx_alloc(filler, small, 1) != nullptr) {
    }
    KnownEndpoint home("home");
    const KnownEndpoint other("other");
    for (int i = 0; i < 10; ++i) {
        sendNumber(home, other.spid, 1);
        ASSERT_EQ(receiveNumber(other), 1u);  // and is freed, which gives it back
    }
    const uint64_t lines = arena.usedPages() * linesPerPage;
    EXPECT_LT(looksOf([&] { home.close(); }), lines / 4);
}

}  // namespace
}  // namespace linx
