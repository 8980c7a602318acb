#ifndef LINXIPC_TESTS_HOST_RECOVERY_H
#define LINXIPC_TESTS_HOST_RECOVERY_H

#include "host/mailbox/wake_state.h"
#include "host/pool/lease.h"
#include "host/recovery/retire.h"
#include "tests/host/endpoints.h"
#include "tests/host/memory_arena.h"
#include "tests/kit/deliver.h"

namespace linx {

constexpr SizeClassId anyClass{3};

/// Lays down by hand what a process leaves that dies between two stores, and looks at what the next holder of the
/// domain lock makes of it.
class RecoveryTest : public linxtest::ArenaDomainTest {
protected:
    void TearDown() override {
        live.close();
        ArenaDomainTest::TearDown();
    }

    /// An endpoint whose process has died: in the arena it is open, but nobody holds its doorbell.
    linxtest::AnySpid layDead(const std::string& name) const {
        const DomainLock lock(*joined);
        const SlotIndex index = takeSlot(arena);
        Slot& slot = arena.slot(index);
        slot.wakeState.storeRelaxed(wake_state::word(makeSpid(index, 1), wake_state::parked));
        countOpened(arena);
        return linxtest::AnySpid(linxtest::layOpenSlot(arena, index, name));
    }

    /// Free blocks at home at `home`.
    std::vector<Ref> leaseFor(Spid home, uint32_t wanted = 1) const {
        const DomainLock lock(*joined);
        return refsOf(lease::fromFreshPages(lock, home, anyClass, wanted));
    }

    std::vector<Ref> refsOf(const lease::Chain& chain) const {
        std::vector<Ref> refs;
        for (Ref ref = chain.head; refs.size() < chain.blocks; ref = block(ref).next.loadRelaxed())
            refs.push_back(ref);
        return refs;
    }

    Block& block(Ref ref) const { return *arena.blockAt(ref); }
    bool isHomeless(Ref ref) const { return central::isHomeless(block(ref)); }

    /// Writes the next owner, as a sender does before it pushes.
    void address(Ref ref, Spid from, Spid to) const {
        slotOf(from).sending.storeRelaxed(ref);
        block(ref).sender.storeRelaxed(from);
        block(ref).size.storeRelaxed(4);
        block(ref).signal.number = 77;
        block(ref).owner.storeRelaxed(inFlightTo(to));
    }
    void post(Ref ref, Spid from, Spid to) const {
        address(ref, from, to);
        ASSERT_TRUE(linxtest::deliver(slotOf(to), arena.blockAt(ref)));
    }

    void reapDead(Spid spid) const {
        ASSERT_TRUE(hasDied(*joined, spid));
        {
            const DomainLock lock(*joined);
            reap(lock, &spid, 1);
        }
        EXPECT_FALSE(isOpen(arena, spid));
    }

    /// The next holder of the domain lock finds that the one before has died in it.
    void repairAfterDeath() const {
        arena.header().dirty.storeRelaxed(1);
        const DomainLock lock(*joined);
        EXPECT_TRUE(lock.isHeld());
    }

    void expectInOrder() const { EXPECT_EQ(linxtest::brokenInvariant(*joined), ""); }

    linxtest::KnownEndpoint live{"live"};
};

}  // namespace linx

#endif
