#ifndef LINXIPC_TESTS_SUPPORT_ARENA_VALIDATOR_H
#define LINXIPC_TESTS_SUPPORT_ARENA_VALIDATOR_H

#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/arena/central_lists.h"
#include "host/arena/hunt_table.h"
#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/mailbox/introduction.h"
#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "host/recovery/domain_lock.h"

namespace linxtest {

/// Looks through an arena in which nobody is at work, and says what in it is not as it should be.
class ArenaValidator {
public:
    explicit ArenaValidator(const linx::DomainLock& lock) : arena_(lock.arena()) {}

    /// Everything: disorder, losses and miscounts.
    std::vector<std::string> violations() {
        std::vector<std::string> all = disorder();
        all.insert(all.end(), lost_.begin(), lost_.end());
        all.insert(all.end(), miscounted_.begin(), miscounted_.end());
        return all;
    }

    /// What no death accounts for.
    std::vector<std::string> disorder() {
        checkPages();
        checkCentralLists();
        checkSlots();
        checkBlocks();
        checkLeases();
        checkNames();
        checkQuarantine();
        checkHunts();
        return said_;
    }

    /// The blocks that nobody will find again, once `disorder` has looked.
    const std::vector<std::string>& losses() const { return lost_; }

    /// The endpoints that count more lines than they are home to, once `disorder` has looked: who dies between a
    /// block and the count of its home's leaves that one a smaller share.
    const std::vector<std::string>& miscounts() const { return miscounted_; }

    /// Whether a block lies in a mailbox, or has been given back and not been fetched, once `disorder` has looked.
    bool isTravelling(linx::Ref ref) const { return travelling_.count(ref) != 0; }

private:
    /// Collects one sentence.
    class Sentence {
    public:
        explicit Sentence(std::vector<std::string>& said) : said_(said) {}
        ~Sentence() { said_.push_back(text_.str()); }
        template <class Part>
        Sentence& operator<<(const Part& part) {
            text_ << part;
            return *this;
        }

    private:
        std::vector<std::string>& said_;
        std::ostringstream text_;
    };

    Sentence say() { return Sentence(said_); }
    Sentence sayLost() { return Sentence(lost_); }
    Sentence sayMiscounted() { return Sentence(miscounted_); }

    bool isLive(linx::Spid spid) const { return linx::isSpid(spid) && linx::isOpen(arena_, spid); }
    uint32_t slotsUsed() const { return arena_.header().slotsUsed.loadRelaxed(); }
    bool isOpenSlot(uint32_t index) const { return (arena_.slot(index).life.loadRelaxed() & linx::lifeOpen) != 0; }

    /// Every page is free or belongs to a run that is all there.
    void checkPages() {
        std::vector<uint32_t> expected(arena_.pageCount(), 0);
        linx::forEachRun(arena_, [&](uint32_t page, uint32_t sizeClass) {
            for (uint32_t i = 0; i < linx::sizeClasses[sizeClass].pages; ++i) {
                expected[page + i] = linx::makePageEntry(sizeClass, i);
            }
        });
        for (uint32_t page = 0; page < arena_.pageCount(); ++page) {
            if (arena_.pageEntry(page).loadRelaxed() != expected[page]) say() << "page " << page << " is of no run";
        }
    }

    /// Where a block lies.
    struct Place {
        const char* kind;
        uint32_t number;
        friend std::ostream& operator<<(std::ostream& out, const Place& place) {
            return out << place.kind << ' ' << place.number;
        }
    };

    bool visitOnce(linx::Ref ref, const Place& place) {
        const auto [known, isNew] = places_.insert({ref, place});
        if (!isNew) say() << "block " << ref << " is in " << place << " and in " << known->second;
        return isNew;
    }

    void checkCentralLists() {
        uint32_t lines = 0;
        for (uint32_t c = 0; c < linx::sizeClassCount; ++c) {
            linx::Ref ref = arena_.header().central[c].loadRelaxed();
            for (uint32_t left = arena_.maxBlocks(); ref != 0; --left) {
                const linx::BlockRef block = arena_.blockAt(ref);
                if (left == 0 || !block || block.sizeClass != c || !linx::central::isHomeless(*block)) {
                    say() << "central list " << c << " holds " << ref << ", which is not its own";
                    break;
                }
                if (!visitOnce(ref, {"central list", c})) break;
                central_.insert(ref);
                lines += linx::linesOfClass(c);
                ref = block->next.loadRelaxed();
            }
        }
        const uint32_t counted = arena_.header().centralLines.loadRelaxed();
        if (counted != lines) say() << counted << " lines are counted as central, not " << lines;
    }

    void checkChain(uint32_t index, linx::Ref head, const char* kind) {
        linx::stack::walk(arena_, head, [&](linx::BlockRef block) {
            visitOnce(block.ref, {kind, index});
            // Or on its way to an earlier user of the slot, from somebody who was held up.
            const uint32_t owner = block->owner.loadRelaxed();
            if ((owner & linx::ownerInFlight) == 0 || linx::indexOf(owner) != index) {
                say() << "block " << block.ref << " lies in the " << Place{kind, index}
                      << " of another than its owner";
            }
            travelling_.insert(block.ref);
        });
    }

    void checkSlots() {
        uint32_t open = 0;
        for (uint32_t i = 1; i <= slotsUsed(); ++i) {
            const linx::Slot& slot = arena_.slot(i);
            const uint32_t life = slot.life.loadRelaxed();
            if (life != 0 && (!linx::isSpid(life & ~linx::lifeOpen) || linx::indexOf(life) != i)) {
                say() << "slot " << i << " is that of " << life;
            }
            if (slot.mailboxClaim.loadRelaxed() != 0) say() << "slot " << i << " is still taking its mailbox";
            if (slot.returnedClaim.loadRelaxed() != 0) say() << "slot " << i << " is still taking its returns";
            if (isOpenSlot(i)) {
                ++open;
                checkOpenSlot(i);
            } else {
                checkQuarantinedSlot(i);
            }
        }
        const uint32_t counted = arena_.header().openEndpoints.loadRelaxed();
        if (counted != open) say() << counted << " endpoints are counted as open, not " << open;
    }

    void checkOpenSlot(uint32_t i) {
        const linx::Slot& slot = arena_.slot(i);
        const linx::Spid spid = slot.life.loadRelaxed() & linx::spidMask;
        const uint32_t wakeState = slot.wakeState.loadRelaxed();
        if (wakeState != linx::wake_state::word(spid, linx::wake_state::stateOf(wakeState))) {
            say() << "the wake state of slot " << i << " is that of an earlier user";
        }
        const uint32_t mailbox = slot.mailbox.loadRelaxed();
        if (linx::stack::tagOf(mailbox) != linx::introduction::tagAt(slot.partings.loadRelaxed())) {
            say() << "the mailbox of slot " << i << " has not the tag of its partings";
        }
        checkChain(i, linx::stack::refOf(mailbox), "mailbox");
        checkChain(i, slot.returned.loadRelaxed(), "returned stack");
    }

    void checkQuarantinedSlot(uint32_t i) {
        if (linx::stack::holdsBlocks(arena_.slot(i).mailbox.loadRelaxed()))
            say() << "ended slot " << i << " has mail";
        if (linx::stack::holdsBlocks(arena_.slot(i).returned.loadRelaxed())) {
            say() << "ended slot " << i << " has been given back blocks";
        }
    }

    /// Every block has one place.
    void checkBlocks() {
        linx::forEachBlock(arena_, [&](linx::BlockRef block) {
            const uint32_t owner = block->owner.loadRelaxed();
            const linx::Spid home = block->home.loadRelaxed();
            linesOf_[home] += linx::linesOfClass(block.sizeClass);
            if (owner == linx::ownerFree && home == linx::noHome) {
                if (central_.count(block.ref) == 0)
                    say() << "block " << block.ref << " has no home and is in no central list";
            } else if (owner == linx::ownerFree) {
                if (!isLive(home)) sayLost() << "block " << block.ref << " is free at a home that has ended";
            } else if (travelling_.count(block.ref) == 0 && !isLive(owner & linx::spidMask)) {
                sayLost() << "block " << block.ref << " is owned by " << owner << ", which has ended";
            } else if ((owner & linx::ownerInFlight) != 0 && travelling_.count(block.ref) == 0) {
                sayLost() << "block " << block.ref << " is on its way and nowhere";
            }
        });
    }

    /// The lines of a home are those that it counts.
    void checkLeases() {
        for (uint32_t i = 1; i <= slotsUsed(); ++i) {
            if (!isOpenSlot(i)) continue;
            const linx::Slot& slot = arena_.slot(i);
            const linx::Spid spid = slot.life.loadRelaxed() & linx::spidMask;
            const uint32_t lines = linesOf_[spid];
            const uint32_t counted = linx::share::linesOf(slot);
            if ((slot.leasedLines.loadRelaxed() ^ linx::share::tagOf(spid)) > linx::share::lineMask) {
                say() << "slot " << i << " has the books of an earlier user";
            }
            if (counted == lines) continue;
            (counted > lines ? sayMiscounted() : say())
                << "slot " << i << " counts " << counted << " lines of " << lines;
        }
    }

    /// The name table holds the open slots, and each once; each is found by its name.
    void checkNames() {
        std::set<uint32_t> listed;
        for (uint32_t bucket = 0; bucket < linx::slotCount; ++bucket) {
            uint32_t index = arena_.bucket(bucket).loadRelaxed();
            while (index != 0) {
                if (index >= linx::slotCount || !isOpenSlot(index) || !listed.insert(index).second) {
                    say() << "bucket " << bucket << " leads to slot " << index;
                    break;
                }
                if (arena_.slot(index).nameHash.loadRelaxed() % linx::slotCount != bucket) {
                    say() << "slot " << index << " is in the wrong bucket";
                }
                index = arena_.slot(index).nextInBucket.loadRelaxed();
            }
        }
        for (uint32_t i = 1; i <= slotsUsed(); ++i) {
            if (!isOpenSlot(i)) continue;
            if (listed.count(i) == 0) say() << "open slot " << i << " has no name";
            const linx::Spid spid = arena_.slot(i).life.loadRelaxed() & linx::spidMask;
            linx::Name name;
            if (!linx::nameOfSpid(arena_, spid, name) || linx::findName(arena_, name) != spid) {
                say() << "slot " << i << " is not found by its name '" << name.text() << "'";
            }
        }
    }

    /// The order of ended slots holds all of them once, the oldest first.
    void checkQuarantine() {
        std::set<uint32_t> listed;
        uint32_t last = 0;
        const uint32_t now = arena_.header().quarantined.loadRelaxed();
        uint32_t ageBefore = ~0u;
        for (uint32_t index = arena_.header().quarantineHead.loadRelaxed(); index != 0;) {
            if (index > slotsUsed() || isOpenSlot(index) || !listed.insert(index).second) {
                say() << "the order of ended slots leads to " << index;
                return;
            }
            const uint32_t age = now - arena_.slot(index).quarantineStamp.loadRelaxed();
            if (age > ageBefore) say() << "ended slot " << index << " comes before one that ended earlier";
            ageBefore = age;
            last = index;
            index = arena_.slot(index).nextInQuarantine.loadRelaxed();
        }
        if (arena_.header().quarantineTail.loadRelaxed() != last) say() << "the newest ended slot is not " << last;
        for (uint32_t i = 1; i <= slotsUsed(); ++i) {
            if (!isOpenSlot(i) && listed.count(i) == 0) say() << "ended slot " << i << " is out of the order";
        }
    }

    void checkHunts() {
        const uint32_t used = arena_.header().huntsUsed.loadRelaxed();
        for (uint32_t i = 0; i < used; ++i) {
            const linx::Hunt& hunt = arena_.hunt(i);
            const linx::Spid hunter = hunt.hunter.loadRelaxed();
            if (hunter == 0) continue;
            const linx::Block* signal = arena_.blockAt(hunt.signal.loadRelaxed()).block;
            if (!isLive(hunter)) say() << "hunt " << i << " is of " << hunter << ", which has ended";
            if (signal == nullptr || signal->owner.loadRelaxed() != (hunter | linx::ownerQueued)) {
                say() << "hunt " << i << " has no signal of its hunter";
            }
        }
        if (used != 0 && arena_.hunt(used - 1).hunter.loadRelaxed() == 0) say() << "the hunts are not trimmed";
    }

    const linx::Arena& arena_;
    std::vector<std::string> said_;
    std::vector<std::string> lost_;  ///< blocks that nobody will find again
    std::vector<std::string> miscounted_;
    std::unordered_map<linx::Spid, uint32_t> linesOf_;  ///< by home
    std::unordered_map<linx::Ref, Place> places_;
    std::unordered_set<linx::Ref> central_;
    std::unordered_set<linx::Ref> travelling_;
};

/// What is wrong with the domain's arena, after whoever died holding the domain lock has been mended; empty when all
/// is well.
inline std::vector<std::string> arenaViolations(const linx::Domain& domain) {
    const linx::DomainLock lock(domain);
    if (!lock.isHeld()) return {"the arena cannot be locked"};
    return ArenaValidator(lock).violations();
}

}  // namespace linxtest

#endif
