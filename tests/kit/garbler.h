#ifndef LINXIPC_TESTS_KIT_GARBLER_H
#define LINXIPC_TESTS_KIT_GARBLER_H

#include <algorithm>
#include <utility>
#include <vector>

#include "host/arena/layout.h"

namespace linxtest {

/// Where an arena is garbled.
enum class Region : uint32_t {
    header,
    buckets,
    slots,
    wakeState,
    stacks,
    names,
    hunts,
    told,
    events,
    pages,
    blocks,
    payloads,
    anywhere
};
constexpr uint32_t regionCount = static_cast<uint32_t>(Region::anywhere) + 1;

inline const char* nameOf(Region region) {
    constexpr const char* names[regionCount] = {"header", "buckets",  "slots",   "wake state", "stacks",
                                                "names",  "hunts",    "told",    "events",     "pages",
                                                "blocks", "payloads", "anywhere"};
    return names[static_cast<uint32_t>(region)];
}

/// Writes words into an arena that do not belong there: any at all, and such as could be there but mislead.
template <class Draw>
class Garbler {
public:
    /// `base` is the mapping of an arena of `pageCount` pages. `draw(bound)` chooses a number below `bound`.
    Garbler(char* base, uint32_t pageCount, Draw draw) : base_(base), pageCount_(pageCount), draw_(draw) {}

    /// Garbles one word of the region. Returns how many bytes were written.
    uint32_t garble(Region region) {
        const size_t place = choosePlace(region);
        write(place, chooseValue(place));
        return sizeof(uint32_t);
    }

private:
    // As in a file that anybody may have written: every count is bounded, every word read once.
    uint32_t read(size_t place) const { return __atomic_load_n(at(place), __ATOMIC_RELAXED); }
    void write(size_t place, uint32_t value) const { __atomic_store_n(at(place), value, __ATOMIC_RELAXED); }
    uint32_t* at(size_t place) const { return reinterpret_cast<uint32_t*>(base_ + place); }

    uint32_t draw(uint32_t bound) { return draw_(bound); }
    uint32_t drawWord() { return draw_(1u << 16) << 16 | draw_(1u << 16); }
    size_t drawWordOf(size_t bytes) { return size_t{draw(static_cast<uint32_t>(bytes / 4))} * 4; }

    uint32_t firstPoolPage() const { return linx::firstPoolPage(pageCount_); }
    size_t bytes() const { return size_t{firstPoolPage() + pageCount_} * linx::pageBytes; }

    size_t choosePlace(Region region) {
        switch (region) {
            case Region::header: {
                const size_t guarded = offsetof(linx::Header, dirty);
                return draw(64) == 0 ? drawWordOf(guarded) : guarded + drawWordOf(sizeof(linx::Header) - guarded);
            }
            case Region::buckets: {
                const uint32_t hash = read(chooseSlot() + offsetof(linx::Slot, nameHash));
                return linx::bucketsOffset + hash % linx::slotCount * 4;
            }
            case Region::slots:
                return chooseSlot() + offsetof(linx::Slot, life) + drawWordOf(32);
            case Region::wakeState:
                return chooseSlot() + offsetof(linx::Slot, wakeState);
            case Region::stacks:
                return chooseSlot() + chooseStackWord();
            case Region::names:
                return chooseSlot() + offsetof(linx::Slot, name) + drawWordOf(16);
            case Region::hunts:
                return linx::huntsOffset + draw(8) * sizeof(linx::Hunt) + drawWordOf(24);
            case Region::told:
                return chooseSlot() + chooseToldWord();
            case Region::events:
                return linx::eventsOffset + chooseSlotIndex() * sizeof(linx::EventRing) +
                       drawWordOf(sizeof(linx::EventRing));
            case Region::pages:
                return linx::pageMapOffset + size_t{choosePage()} * 4;
            case Region::blocks:
                return blockOffset(chooseBlock()) + drawWordOf(32);
            case Region::payloads:
                return blockOffset(chooseBlock()) + sizeof(linx::Block) + drawWordOf(32);
            default:
                return drawAnywhere();
        }
    }

    size_t drawAnywhere() {
        const size_t page = draw(static_cast<uint32_t>(bytes() / linx::pageBytes));
        return page * linx::pageBytes + drawWordOf(linx::pageBytes);
    }

    size_t chooseStackWord() {
        constexpr size_t words[] = {offsetof(linx::Slot, mailbox), offsetof(linx::Slot, returned),
                                    offsetof(linx::Slot, mailboxClaim), offsetof(linx::Slot, returnedClaim),
                                    offsetof(linx::Slot, sending)};
        return words[draw(5)];
    }

    size_t chooseToldWord() {
        constexpr std::pair<size_t, size_t> parts[] = {{offsetof(linx::Slot, recorded), sizeof(linx::Slot::recorded)},
                                                       {offsetof(linx::Slot, logMask), sizeof(linx::Slot::logMask)},
                                                       {offsetof(linx::Slot, traffic), sizeof(linx::Slot::traffic)},
                                                       {offsetof(linx::Slot, maker), sizeof(linx::Slot::maker)},
                                                       {offsetof(linx::Slot, waiting), sizeof(linx::Slot::waiting)},
                                                       {offsetof(linx::Slot, refused), sizeof(linx::Slot::refused)}};
        const auto& [offset, bytes] = parts[draw(6)];
        return offset + drawWordOf(bytes);
    }

    uint32_t slotsUsed() const { return std::min(read(offsetof(linx::Header, slotsUsed)), linx::slotCount - 1); }

    size_t chooseSlot() { return slotOffset(chooseSlotIndex()); }

    /// Mostly of an open one.
    uint32_t chooseSlotIndex() {
        const uint32_t used = slotsUsed();
        std::vector<uint32_t> open;
        for (uint32_t i = 1; i <= used; ++i) {
            if (isOpen(readLife(slotOffset(i)))) open.push_back(i);
        }
        if (open.empty() || draw(8) == 0) return draw(used + 2) % linx::slotCount;
        return open[draw(static_cast<uint32_t>(open.size()))];
    }
    static size_t slotOffset(uint32_t index) { return linx::slotsOffset + index * sizeof(linx::Slot); }

    uint32_t choosePage() {
        const uint32_t used = std::min(read(offsetof(linx::Header, pagesUsed)), pageCount_ - 1);
        return draw(used + 1);
    }

    /// A block of a leased page, where its table says so, and any line of it otherwise.
    linx::Ref chooseBlock() {
        uint32_t page = choosePage();
        const uint32_t entry = read(linx::pageMapOffset + size_t{page} * 4);
        const linx::SizeClassId sizeClass = linx::entryClass(entry);
        const uint32_t start = page - linx::entryBack(entry);
        const auto refOf = [&](uint32_t of) { return linx::Ref{(firstPoolPage() + of) * linx::linesPerPage}; };
        if (sizeClass >= linx::sizeClassCount || start > page) return refOf(page) + draw(linx::linesPerPage);
        const linx::SizeClass& c = linx::sizeClasses[sizeClass];
        if (start + c.pages > pageCount_) return refOf(page) + draw(linx::linesPerPage);
        return refOf(start) + draw(c.blocks) * c.lines;
    }
    static size_t blockOffset(linx::Ref ref) { return size_t{numberOf(ref)} * linx::lineBytes; }

    uint32_t chooseValue(size_t place) {
        const uint32_t before = read(place);
        switch (draw(10)) {
            case 0:
                return drawWord();
            case 1:
                return draw(8);
            case 2:
                return 0u - draw(4);
            case 3:
                return before + 1;
            case 4:
                return before - 1;
            case 5:
            case 6:
                return numberOf(chooseBlock());
            case 7:  // of a block's header: the block itself
                return static_cast<uint32_t>(place / linx::lineBytes);
            case 8:
                return chooseOwner(spidOf(readLife(chooseSlot())));
            default:
                return before ^ 1u << draw(32);
        }
    }

    linx::LifeWord readLife(size_t slot) const { return linx::LifeWord{read(slot + offsetof(linx::Slot, life))}; }

    uint32_t chooseOwner(linx::Spid spid) {
        constexpr uint32_t nobodysBits = ~linx::spidMask;
        const uint32_t owners[] = {numberOf(linx::heldBy(spid)), numberOf(linx::queuedFor(spid)),
                                   numberOf(linx::inFlightTo(spid)), numberOf(spid) | nobodysBits};
        return owners[draw(4)];
    }

    char* base_;
    uint32_t pageCount_;
    Draw draw_;
};

}  // namespace linxtest

#endif
