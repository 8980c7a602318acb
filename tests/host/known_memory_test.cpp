// The kernel refuses to give memory to what has some: it is used all the same. What has none is not touched.

#include <cerrno>

#include "host/recovery/retire.h"
#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/host/memory_arena.h"
#include "tests/kit/child.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;

using linxtest::KnownEndpoint;

class KnownMemoryTest : public linxtest::ArenaDomainTest {
protected:
    void TearDown() override {
        interposed::reset();
        ArenaDomainTest::TearDown();
    }

    /// Has a process put to use what this one does not know of yet.
    template <class Body>
    static void inProcess(Body body) {
        EXPECT_EQ(Child([&](Line&) { body(); }).exitStatus(), 0);
    }

    static void refuseMemory(int error) {
        interposed::atReserve = [error](int64_t, int64_t) { return error; };
    }
};

constexpr int refusals[] = {ENOMEM, ENOSPC, EIO, EBADF};

TEST_F(KnownMemoryTest, MailArrivesWhereverItLies) {
    const KnownEndpoint receiver("receiver");
    uint32_t number = 0;
    for (const int error : refusals) {
        constexpr uint32_t count = 50;
        inProcess([&] {
            const KnownEndpoint sender("sender");
            // Larger than what was ever sent: none lies where this process has looked.
            const uint32_t size = 20000 + number * 1000;
            for (uint32_t i = 1; i <= count; ++i) sendNumber(sender, receiver.spid, number + i, size);
        });
        refuseMemory(error);
        for (uint32_t i = 1; i <= count; ++i) ASSERT_EQ(receiveNumber(receiver), number + i) << error;
        interposed::reset();
        number += count;
    }
}

TEST_F(KnownMemoryTest, NothingLiesBehindTheLast) {
    EXPECT_FALSE(arena.providePage(PageIndex{arena.pageCount()}));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_FALSE(arena.provideSlot(SlotIndex{slotCount}));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_FALSE(arena.provideHunt(huntCount));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_FALSE(arena.hasSlot(SlotIndex{slotCount}));
    EXPECT_FALSE(arena.hasSlot(SlotIndex{~0u}));
}

TEST_F(KnownMemoryTest, EndpointsAndHuntsAreSeen) {
    uint32_t number = 0;
    for (const int error : refusals) {
        const std::string absent = "absent" + std::to_string(++number);
        // So many that their slots and hunts lie on pages of their own.
        for (int i = 0; i < 20; ++i) {
            inProcess([&] {
                LINX* filler = linx_open(("filler" + std::to_string(i)).c_str(), 0, nullptr);
                EXPECT_EQ(linx_hunt(filler, absent.c_str(), nullptr), 0);
            });
        }
        refuseMemory(error);
        // Or one that is in use would be taken for fresh.
        const uint32_t used = arena.header().slotsUsed.loadRelaxed();
        EXPECT_EQ(arena.usedSlots(), used);
        EXPECT_EQ(arena.usedHunts(), arena.header().huntsUsed.loadRelaxed());
        interposed::reset();
    }
    const DomainLock lock(*joined);
    reapAllDead(lock);
}

TEST(MissingMemoryTest, NoBlockIsFoundWhereThereIsNone) {
    const linxtest::MemoryArena memory;
    const Arena withoutFile = memory.arena(linxtest::noFile);
    const Ref first = memory.layRun(0, 0);
    const Ref second = memory.layRun(1, 0);
    const Ref large = memory.layRun(2, sizeClassCount - 1);
    withoutFile.header().pagesUsed.storeRelaxed(linxtest::MemoryArena::pages);
    memory.cutTo(size_t{withoutFile.filePageOf(PageIndex{1})} * pageBytes);
    EXPECT_NE(withoutFile.blockAt(first).block, nullptr);
    EXPECT_EQ(withoutFile.blockAt(second).block, nullptr);
    EXPECT_EQ(withoutFile.usedPages(), 1u);
    memory.cutTo(size_t{withoutFile.filePageOf(PageIndex{3})} * pageBytes);
    EXPECT_NE(withoutFile.blockAt(second).block, nullptr);
    EXPECT_EQ(withoutFile.blockAt(large).block, nullptr) << "its end has none";
    memory.makeWhole();
    EXPECT_NE(withoutFile.blockAt(large).block, nullptr);
}

}  // namespace
}  // namespace linx
