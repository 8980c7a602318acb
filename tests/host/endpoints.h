#ifndef LINXIPC_TESTS_HOST_ENDPOINTS_H
#define LINXIPC_TESTS_HOST_ENDPOINTS_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/arena/central_lists.h"
#include "host/arena/domain.h"
#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "platform/linx.h"
#include "tests/kit/arena_order.h"
#include "tests/kit/domain_test.h"

namespace linxtest {

constexpr uint32_t anySignal[] = {0};

struct CloseLinx {
    void operator()(LINX* linx) const { linx_close(linx); }
};

/// A spid of those who look into the arena, and of those who call operations.
class AnySpid {
public:
    AnySpid() = default;
    explicit AnySpid(linx::Spid spid) : spid_(spid) {}
    explicit AnySpid(LinxSpid spid) : spid_(linx::Spid{spid}) {}
    operator linx::Spid() const { return spid_; }
    operator LinxSpid() const { return numberOf(spid_); }

private:
    linx::Spid spid_ = linx::Spid::none;
};
inline bool operator==(AnySpid a, AnySpid b) {
    return LinxSpid{a} == LinxSpid{b};
}
inline bool operator!=(AnySpid a, AnySpid b) {
    return !(a == b);
}

/// An open endpoint, closed with its scope.
class Linx : public std::unique_ptr<LINX, CloseLinx> {
public:
    explicit Linx(const std::string& name) : std::unique_ptr<LINX, CloseLinx>(linx_open(name.c_str(), 0, nullptr)) {
        EXPECT_NE(get(), nullptr) << name;
        LinxSignal* signal = linx_alloc(get(), 4, 0);
        spid = AnySpid(linx_sender(get(), &signal));
        linx_free_buf(get(), &signal);
    }
    operator LINX*() const { return get(); }

    AnySpid spid;
};

/// A test that sees the arena behind the endpoints, whose words are all in order at its end.
class ArenaDomainTest : public DomainTest {
protected:
    void TearDown() override {
        EXPECT_EQ(brokenInvariant(*joined), "");
        joined.reset();
        DomainTest::TearDown();
    }

    linx::Slot& slotOf(linx::Spid spid) const { return arena.slot(linx::indexOf(spid)); }
    uint32_t leasedLines(linx::Spid spid) const { return linx::share::linesOf(slotOf(spid)); }
    uint32_t dropped(linx::Spid spid) const { return static_cast<uint32_t>(slotOf(spid).dropped.value()); }

    /// Blocks that somebody owns: in users' hands, queued, parked or on their way.
    uint32_t ownedBlocks() const {
        const linx::debug::Census census = lookInto(*joined).census;
        return census.blocks - census.central - census.atHome;
    }

    /// The path of an endpoint's doorbell.
    std::string doorbellOf(LinxSpid spid) const {
        char name[16];
        std::snprintf(name, sizeof name, "bell.%08x", spid);
        return domain.pathOf(name);
    }

    linx::Ref refOf(LinxSignal* signal) const { return arena.refOf(linx::blockOf(signal)); }

    /// Sends a fresh signal.
    static void sendNumber(LINX* from, LinxSpid to, uint32_t number, uint32_t size = 4) {
        LinxSignal* signal = linx_alloc(from, size, number);
        ASSERT_NE(signal, nullptr);
        ASSERT_EQ(linx_send(from, &signal, to), 0);
    }

    /// Receives the next signal without waiting and frees it. Its number; 0 when there was none.
    static uint32_t receiveNumber(LINX* linx) {
        LinxSignal* signal = nullptr;
        if (linx_receive_w_tmo(linx, &signal, 0, anySignal) <= 0) return 0;
        const uint32_t number = signal->number;
        linx_free_buf(linx, &signal);
        return number;
    }

    std::shared_ptr<linx::Domain> joined = linx::Domain::join();
    const linx::Arena& arena = joined->arena();
};

}  // namespace linxtest

#endif
