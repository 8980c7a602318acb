#ifndef LINXIPC_TESTS_HOST_POOL_FIXTURE_H
#define LINXIPC_TESTS_HOST_POOL_FIXTURE_H

#include <cerrno>
#include <vector>

#include "tests/host/endpoints.h"
#include "tests/kit/small_arena.h"

namespace linx {

constexpr uint32_t mebibyte = 1u << 20;

class PoolTest : public linxtest::ArenaDomainTest {
protected:
    void TearDown() override {
        two.close();
        one.close();
        ArenaDomainTest::TearDown();
    }

    static uint32_t linesOf(uint32_t size) { return linesOfClass(classForLines(linesForSignal(size))); }

    /// Allocates signals until there is no room.
    static std::vector<LinxSignal*> allocateAll(LINX* linx, uint32_t size) {
        std::vector<LinxSignal*> signals;
        while (LinxSignal* signal = linx_alloc(linx, size, 1)) signals.push_back(signal);
        EXPECT_EQ(errno, ENOMEM);
        return signals;
    }
    static void freeAll(LINX* linx, std::vector<LinxSignal*>& signals) {
        for (LinxSignal*& signal : signals) EXPECT_EQ(linx_free_buf(linx, &signal), 0);
        signals.clear();
    }
    static bool canAllocate(LINX* linx, uint32_t size) {
        LinxSignal* signal = linx_alloc(linx, size, 1);
        return signal != nullptr && linx_free_buf(linx, &signal) == 0;
    }
    static LinxSignal* pass(LINX* from, LINX* to, LinxSpid spid, uint32_t size) {
        sendNumber(from, spid, 1, size);
        LinxSignal* signal = nullptr;
        EXPECT_EQ(linx_receive_w_tmo(to, &signal, 0, anySignal), static_cast<int>(size));
        return signal;
    }
    static Spid homeOf(LinxSignal* signal) { return blockOf(signal)->home.loadRelaxed(); }

    linxtest::KnownEndpoint one{"one"};
    linxtest::KnownEndpoint two{"two"};
};

class TightTest : private linxtest::SmallArena, public PoolTest {};

}  // namespace linx

#endif
