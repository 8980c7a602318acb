// Every invariant that stands in layout.h, broken by one word.

#include "host/debug/validate.h"

#include <gmock/gmock.h>

#include "tests/host/recovery.h"

namespace linx {
namespace {

using debug::Findings;
using debug::Grade;
using linxtest::KnownEndpoint;
using linxtest::ScopedVariable;
using testing::EndsWith;
using testing::StartsWith;

/// An arena with something of everything in it, of which one word is wrong.
class ValidateTest : public RecoveryTest {
protected:
    ValidateTest() {
        sendNumber(live, other.spid, 1);
        KnownEndpoint("first").close();
        KnownEndpoint("second").close();
        EXPECT_EQ(linx_hunt(live, "nobody", nullptr), 0);
        kept = linx_alloc(live, 4, 1);
        KnownEndpoint("third").close();
        expectInOrder();
    }
    void TearDown() override {
        linx_free_buf(live, &kept);
        other.close();
        RecoveryTest::TearDown();
    }

    Findings look(Grade grade) const {
        const DomainLock lock(*joined);
        return validate(arena, grade);
    }

    /// Says this with another value in the word, and nothing once it is back.
    template <class T, class Kind, class Wrong>
    void expectSaid(WordOf<T, Kind>& word, Wrong wrong, const std::string& what, Grade from = Grade::quick) const {
        SCOPED_TRACE(what);
        const T right = word.loadRelaxed();
        word.storeRelaxed(static_cast<T>(wrong));
        EXPECT_THAT(look(Grade::quick).broken, from == Grade::quick ? StartsWith(what) : StartsWith(""));
        EXPECT_THAT(look(Grade::full).broken, StartsWith(what));
        word.storeRelaxed(right);
        expectInOrder();
    }
    template <class T, class Kind, class Wrong>
    void expectSaidAtRest(WordOf<T, Kind>& word, Wrong wrong, const std::string& what) const {
        expectSaid(word, wrong, what, Grade::full);
    }
    template <class T>
    void expectSaidOfOneMore(WordOf<T>& word, const std::string& what) const {
        expectSaid(word, numberOf(word.loadRelaxed()) + 1, what);
    }

    /// The same of a block that is lost.
    template <class T, class Wrong>
    void expectLost(WordOf<T>& word, Wrong wrong, const std::string& what) const {
        expectSaidAtRest(word, wrong, nameOf("block", refOf(kept)) + ": " + what);
        const T right = word.loadRelaxed();
        word.storeRelaxed(static_cast<T>(wrong));
        EXPECT_EQ(look(Grade::full).census.lost, 1u);
        word.storeRelaxed(right);
    }

    template <class Number>
    static std::string nameOf(const char* kind, Number number) {
        return debug::Subject{kind, number}.text();
    }
    std::string ownName() const { return nameOf("slot", indexOf(live.spid)); }
    Header& header() const { return arena.header(); }
    Slot& own() const { return slotOf(live.spid); }

    /// The list that has a block in it.
    uint32_t usedClass() const {
        uint32_t sizeClass = 0;
        while (header().central[sizeClass].loadRelaxed() == Ref::none) ++sizeClass;
        return sizeClass;
    }
    /// The first page that was never used.
    uint32_t freePage() const { return header().pagesUsed.loadRelaxed(); }

    KnownEndpoint other{"other"};
    LinxSignal* kept = nullptr;
    const linxtest::DisorderAllowed allowed;
};

TEST_F(ValidateTest, SeesThatMoreIsUsedThanThereIs) {
    expectSaid(header().slotsUsed, slotCount, "header: slotsUsed < slots");
    expectSaid(header().huntsUsed, huntCount + 1, "header: huntsUsed <= hunts");
    expectSaid(header().pagesUsed, arena.pageCount() + 1, "header: pagesUsed <= pageCount");
}

TEST_F(ValidateTest, SeesThatTheHeaderCountsWrong) {
    expectSaidOfOneMore(header().openEndpoints, "header: openEndpoints = open slots");
    expectSaidOfOneMore(header().centralLines, "header: centralLines = lines in the central lists");
    expectSaidOfOneMore(header().huntsUsed, "hunt 1: the last of huntsUsed is in use");
    expectSaid(header().quarantineTail, 0, "header: quarantineTail = last in quarantine");
}

TEST_F(ValidateTest, SeesThatAPageIsOfNoRun) {
    const uint32_t page = freePage();
    expectSaid(arena.pageEntry(PageIndex{page - 1}), makePageEntry(SizeClassId{0}, 1),
               nameOf("page", page - 1) + ": it is free, or of one run");
    expectSaidAtRest(arena.pageEntry(PageIndex{page}), makePageEntry(SizeClassId{0}, 0),
                     nameOf("page", page) + ": it is free from pagesUsed on");
}

TEST_F(ValidateTest, SeesThatAGapIsLongerThanIsSaid) {
    header().longestGap.storeRelaxed(0);
    expectInOrder();
    header().pagesUsed.storeRelaxed(freePage() + 2);
    EXPECT_EQ(look(Grade::quick).broken, "header: longestGap >= free pages side by side (2)");
    header().longestGap.storeRelaxed(2);
    expectInOrder();
}

TEST_F(ValidateTest, SeesThatACentralListLeadsAstray) {
    const uint32_t sizeClass = usedClass();
    WordOf<Ref>& head = header().central[sizeClass];
    const std::string itsBlocks = nameOf("central list", sizeClass) + ": its blocks are of its class";
    Block& first = block(head.loadRelaxed());
    const Ref second = first.next.loadRelaxed();
    ASSERT_NE(second, Ref::none);
    expectSaid(head, second, "header: centralLines =");
    expectSaid(head, 0, "header: centralLines =");
    expectSaid(head, arena.refOfPage(PageIndex{0}) + ~0u, itsBlocks);
    expectSaid(first.next, head.loadRelaxed(), "header: centralLines =");
    expectSaid(first.owner, heldBy(live.spid), itsBlocks);
    expectSaid(first.home, Spid{live.spid}, itsBlocks);
    expectSaid(header().central[sizeClass + 1], head.loadRelaxed(), nameOf("central list", sizeClass + 1));
}

TEST_F(ValidateTest, FollowsACentralListNoFurtherThanThereAreLines) {
    const uint32_t sizeClass = usedClass();
    const Ref ref = header().central[sizeClass].loadRelaxed();
    const Ref next = block(ref).next.loadRelaxed();
    const uint32_t lines = header().centralLines.loadRelaxed();
    block(ref).next.storeRelaxed(ref);
    header().centralLines.storeRelaxed(~0u);
    const uint32_t step = linesOfClass(SizeClassId{sizeClass});
    const uint32_t most = (arena.pageCount() * linesPerPage / step + 1) * step;
    EXPECT_THAT(look(Grade::quick).broken, EndsWith("(4294967295 and " + std::to_string(most) + ")"));
    block(ref).next.storeRelaxed(next);
    header().centralLines.storeRelaxed(lines);
}

TEST_F(ValidateTest, SeesThatASlotIsNotItsUsers) {
    expectSaidOfOneMore(own().life, ownName() + ": indexOf(life) = its own");
    expectSaid(own().wakeState, wake_state::word(Spid{live.spid + slotCount}, wake_state::parked),
               ownName() + ": wakeState and life are of one generation");
    expectSaidAtRest(own().leasedLines, own().leasedLines.loadRelaxed() ^ (1u << refBits),
                     ownName() + ": leasedLines and life are of one generation");
}

TEST_F(ValidateTest, SeesThatTheQuarantineIsOutOfOrder) {
    const SlotIndex oldest = header().quarantineHead.loadRelaxed();
    Slot& first = arena.slot(oldest);
    const SlotIndex next = first.nextInQuarantine.loadRelaxed();
    Slot& last = arena.slot(header().quarantineTail.loadRelaxed());
    ASSERT_NE(next, SlotIndex::none);
    const std::string theirCount = "quarantine: slots in it = used slots that are not open";
    expectSaid(header().quarantineHead, next, theirCount);
    expectSaid(last.nextInQuarantine, oldest, nameOf("slot", oldest) + ": the quarantine is in the order");
    expectSaid(last.nextInQuarantine, indexOf(live.spid), "quarantine: its slots have been used and are not open");
    expectSaid(last.nextInQuarantine, slotCount - 1, "quarantine: its slots have been used and are not open");
    expectSaid(first.quarantineStamp, header().quarantined.loadRelaxed(),
               nameOf("slot", next) + ": the quarantine is in the order of its stamps");
}

TEST_F(ValidateTest, SeesThatANameIsWrong) {
    const uint32_t bucket = own().nameHash.loadRelaxed() % slotCount;
    const SlotIndex ended = header().quarantineHead.loadRelaxed();
    expectSaid(arena.bucket(bucket), 0, "name table: slots in it = open slots");
    expectSaid(own().nextInBucket, indexOf(live.spid), "name table: slots in it = open slots");
    expectSaid(own().nextInBucket, ended, nameOf("bucket", bucket) + ": its slots are open");
    expectSaidOfOneMore(own().nameHash, ownName() + ": its bucket is that of nameHash");
    expectSaidAtRest(own().name[0], own().name[0].loadRelaxed() + 1, ownName() + ": findName(its name) = its spid");
}

TEST_F(ValidateTest, SeesThatAHuntIsWrong) {
    expectSaid(arena.hunt(0).hunter, live.spid + slotCount, "hunt 0: its hunter is open");
    expectSaid(arena.hunt(0).hunter, answeredTo(live.spid), "hunt 0: its hunter is open");
    expectSaid(arena.hunt(0).signal, refOf(kept), "hunt 0: its signal is queued for its hunter");
}

TEST_F(ValidateTest, SeesAtRestThatAStackIsWrong) {
    expectSaidAtRest(own().mailboxClaim, 5, ownName() + ": mailboxClaim = none");
    expectSaidAtRest(own().returnedClaim, 5, ownName() + ": returnedClaim = none");
    expectSaidAtRest(own().partings, own().partings.loadRelaxed() + 1,
                     ownName() + ": tag of mailbox = tag of partings");
    const SlotIndex ended = header().quarantineHead.loadRelaxed();
    const std::string ofEnded = nameOf("slot", ended) + ": its stacks are empty unless it is open";
    expectSaidAtRest(arena.slot(ended).mailbox, refOf(kept), ofEnded);
    expectSaidAtRest(arena.slot(ended).returned, refOf(kept), ofEnded);
}

TEST_F(ValidateTest, SeesAtRestThatABlockIsInTheWrongPlace) {
    const Ref mail = stack::refOf(slotOf(other.spid).mailbox.loadRelaxed());
    ASSERT_NE(mail, stack::empty);
    expectSaidAtRest(slotOf(other.spid).returned, mail,
                     nameOf("block", mail) + ": it is in one place (returned stack");
    expectSaidAtRest(block(mail).next, mail, nameOf("block", mail) + ": it is in one place (mailbox");
    expectSaidAtRest(block(mail).next, arena.refOfPage(PageIndex{0}) + ~0u,
                     nameOf("mailbox", indexOf(other.spid)) + ": its links lead from block");
    expectSaidAtRest(own().returned, refOf(kept),
                     nameOf("block", refOf(kept)) + ": the blocks of a stack are in flight");
    blockOf(kept)->owner.storeRelaxed(OwnerWord::free);
    expectSaidAtRest(blockOf(kept)->home, noHome,
                     nameOf("block", refOf(kept)) + ": without owner and home it is in a");
    blockOf(kept)->owner.storeRelaxed(heldBy(live.spid));
}

TEST_F(ValidateTest, TellsWhichBlockIsLost) {
    WordOf<OwnerWord>& owner = blockOf(kept)->owner;
    expectLost(owner, inFlightTo(live.spid), "in flight, it is in a stack");
    expectLost(owner, live.spid + slotCount, "held or queued, its owner is open");
    owner.storeRelaxed(OwnerWord::free);
    expectLost(blockOf(kept)->home, live.spid + slotCount, "without owner, its home is open");
    owner.storeRelaxed(heldBy(live.spid));
}

TEST_F(ValidateTest, ComparesTheSharesWithTheBlocks) {
    const uint32_t lines = own().leasedLines.loadRelaxed();
    const std::string equation = ownName() + ": leasedLines = lines of the blocks whose home it is";
    expectSaidAtRest(own().leasedLines, lines - 1, equation);
    own().leasedLines.storeRelaxed(lines + 1);
    const Findings findings = look(Grade::full);
    EXPECT_EQ(findings.broken, "");
    EXPECT_THAT(findings.smallerShares, testing::ElementsAre(StartsWith(equation)));
    own().leasedLines.storeRelaxed(lines);
}

TEST_F(ValidateTest, LooksWhetherWhatIsRecordedIsWhole) {
    for (uint32_t number = 2; number < 5; ++number) sendNumber(live, other.spid, number);
    EventRing& ring = arena.events(indexOf(Spid{live.spid}));
    const uint32_t last = own().recorded.loadRelaxed();
    ToldWord& before = ring.at(last - eventStep).event;
    const std::string invariant =
        ownName() + ": its events since it was opened are whole, but for the last and the oldest";
    expectSaidAtRest(before, 0u, invariant);
    expectSaidAtRest(before, before.loadRelaxed() + eventStep, invariant);
    expectSaidAtRest(before, last - eventStep + 15, ownName() + ": the kinds of its events are known");
    own().recorded.storeRelaxed(last + eventStep);  // as one leaves it that dies amid the next
    expectInOrder();
    own().recorded.storeRelaxed(last);
}

TEST_F(ValidateTest, CountsEveryBlockOnce) {
    const debug::Census before = look(Grade::full).census;
    EXPECT_EQ(before.blocks, before.central + before.atHome + before.inStacks + before.owned + before.lost);
    EXPECT_NE(before.central, 0u);
    EXPECT_NE(before.atHome, 0u);
    EXPECT_EQ(before.inStacks, 1u);
    EXPECT_EQ(before.owned, 2u);  // in the user's hands, and for the hunt
    EXPECT_EQ(before.lost, 0u);
    LinxSignal* signal = linx_alloc(live, 4, 1);
    const debug::Census after = look(Grade::full).census;
    EXPECT_EQ(after.owned, before.owned + 1);
    EXPECT_EQ(after.atHome, before.atHome - 1);
    linx_free_buf(live, &signal);
}

TEST_F(ValidateTest, EndsAProcessThatWouldLeaveTheDomainLockInDisorder) {
    const auto leaveLock = [this] {
        for (int i = 0; i < 64; ++i) debug::requireOrder(arena);  // it looks at one of so many at least
    };
    Word& open = header().openEndpoints;
    open.storeRelaxed(open.loadRelaxed() + 1);
    {
        const ScopedVariable checked("LINX_VALIDATE", nullptr);
        EXPECT_DEATH(leaveLock(), "not in order: header: openEndpoints = open slots \\(3 and 2\\)");
    }
    leaveLock();
    open.storeRelaxed(open.loadRelaxed() - 1);
    leaveLock();
}

}  // namespace
}  // namespace linx
