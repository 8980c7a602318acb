#ifndef LINXIPC_TESTS_HOST_ENDPOINTS_H
#define LINXIPC_TESTS_HOST_ENDPOINTS_H

#include <cstdio>
#include <memory>
#include <string>

#include "host/arena/central_lists.h"
#include "host/arena/domain.h"
#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "tests/kit/arena_order.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace linxtest {

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

/// One whose spid the test knows from the start, unless there is no memory at all to ask with.
class KnownEndpoint : public Endpoint {
public:
    explicit KnownEndpoint(const std::string& name) : Endpoint(name) {
        LinxSignal* fresh = linx_alloc(*this, sizeof(LinxSignal), 0);
        spid = AnySpid(linx_sender(*this, &fresh));
        linx_free_buf(*this, &fresh);
    }

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

    std::shared_ptr<linx::Domain> joined = linx::Domain::join();
    const linx::Arena& arena = joined->arena();
};

}  // namespace linxtest

#endif
