#include "tests/support/arena_validator.h"

#include <gmock/gmock.h>

#include "tests/host/recovery.h"

namespace linx {
namespace {

using linxtest::Linx;
using testing::ElementsAre;
using testing::HasSubstr;

/// An arena with something of everything in it, of which one word is wrong.
class ArenaValidatorTest : public RecoveryTest {
protected:
    ArenaValidatorTest() {
        const Linx other("other");
        sendNumber(other, other.spid, 1);
        Linx("first").reset();
        Linx("second").reset();
        EXPECT_EQ(linx_hunt(live, "nobody", nullptr), 0);
        LinxSignal* signal = linx_alloc(other, 4, 1);
        linx_free_buf(other, &signal);
        expectInOrder();
    }

    /// Says this with another value in the word, and nothing once it is back.
    void expectSaid(Word& word, uint32_t wrong, const std::string& what) const {
        const uint32_t right = word.loadRelaxed();
        word.storeRelaxed(wrong);
        EXPECT_THAT(linxtest::arenaViolations(*joined), testing::Contains(HasSubstr(what)));
        word.storeRelaxed(right);
        expectInOrder();
    }
    void expectSaidOfOneMore(Word& word, const std::string& what) const {
        expectSaid(word, word.loadRelaxed() + 1, what);
    }

    Header& header() const { return arena.header(); }
    Slot& own() const { return slotOf(live.spid); }
};

TEST_F(ArenaValidatorTest, SeesThatCountsAreWrong) {
    expectSaidOfOneMore(header().openEndpoints, "counted as open");
    expectSaidOfOneMore(header().centralLines, "counted as central");
    expectSaidOfOneMore(own().leasedLines, "lines of");
    expectSaid(own().leasedLines, own().leasedLines.loadRelaxed() - 1, "lines of");
    expectSaidOfOneMore(header().huntsUsed, "not trimmed");
}

TEST_F(ArenaValidatorTest, SeesThatTheQuarantineIsOutOfOrder) {
    const uint32_t oldest = header().quarantineHead.loadRelaxed();
    const uint32_t next = arena.slot(oldest).nextInQuarantine.loadRelaxed();
    expectSaid(header().quarantineHead, next, "out of the order");
    expectSaid(header().quarantineTail, oldest, "the newest ended slot");
    expectSaid(arena.slot(header().quarantineTail.loadRelaxed()).nextInQuarantine, indexOf(live.spid), "leads to");
    expectSaid(arena.slot(oldest).quarantineStamp, header().quarantined.loadRelaxed(),
               "comes before one that ended earlier");
}

TEST_F(ArenaValidatorTest, SeesThatASlotIsWrong) {
    expectSaidOfOneMore(own().life, "is that of");
    expectSaid(own().wakeState, wake_state::word(live.spid + slotCount, wake_state::parked), "of an earlier user");
    expectSaidOfOneMore(own().partings, "the tag of its partings");
    expectSaid(own().mailboxClaim, 5, "still taking its mailbox");
    expectSaid(own().returnedClaim, 5, "still taking its returns");
    Slot& ended = arena.slot(header().quarantineHead.loadRelaxed());
    expectSaid(ended.mailbox, arena.refOfPage(0), "has mail");
    expectSaid(ended.returned, arena.refOfPage(0), "has been given back");
}

TEST_F(ArenaValidatorTest, SeesThatANameIsWrong) {
    expectSaidOfOneMore(own().name[0], "not found by its name");
    expectSaidOfOneMore(own().nameHash, "in the wrong bucket");
    expectSaid(arena.bucket(own().nameHash.loadRelaxed()), 0, "has no name");
}

TEST_F(ArenaValidatorTest, SeesThatABlockIsWrong) {
    uint32_t sizeClass = 0;
    while (header().central[sizeClass].loadRelaxed() == 0) ++sizeClass;
    Word& head = header().central[sizeClass];
    expectSaid(head, block(head.loadRelaxed()).next.loadRelaxed(), "in no central list");
    expectSaid(head, arena.refOfPage(0) - 1, "not its own");
    Block& common = block(head.loadRelaxed());
    expectSaid(common.owner, live.spid, "not its own");
    expectSaid(arena.hunt(0).signal, head.loadRelaxed(), "no signal of its hunter");
    expectSaid(arena.hunt(0).hunter, live.spid + slotCount, "which has ended");
    LinxSignal* signal = linx_alloc(live, 4, 1);
    expectSaid(blockOf(signal)->owner, live.spid | ownerInFlight, "on its way and nowhere");
    expectSaid(blockOf(signal)->owner, live.spid + slotCount, "which has ended");
    linx_free_buf(live, &signal);
}

}  // namespace
}  // namespace linx
