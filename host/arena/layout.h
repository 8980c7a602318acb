#ifndef LINXIPC_HOST_ARENA_LAYOUT_H
#define LINXIPC_HOST_ARENA_LAYOUT_H

#include <array>
#include <cstddef>
#include <type_traits>

#include "host/arena/event.h"
#include "host/arena/life_word.h"
#include "host/arena/owner_word.h"
#include "host/arena/size_classes.h"
#include "host/arena/ref.h"
#include "host/arena/spid.h"
#include "host/arena/told.h"
#include "host/arena/word.h"
#include "platform/linx.h"

namespace linx {

/*
 * The arena, one file that every endpoint of a domain maps. All fields are 32 bits wide and hold references (counted
 * in cache lines from the start of the file), never pointers, so that 32-bit and 64-bit processes share it.
 *
 *   0         Header          identity, then what the domain lock guards
 *   4 KiB     name buckets    slotCount words: first slot of each hash chain
 *   36 KiB    slots           slotCount slots of 576 bytes; memory is reserved page by page as they are first used
 *   ~4.5 MiB  hunts           pending hunts; reserved in the same way
 *   ~5.6 MiB  events          eventCount events for each slot, the last that happened there; reserved with the slot
 *   ...       page map      one word a page: which run it belongs to, of which size class
 *   ...       pages           the signal pool, 4 KiB each; reserved as they are leased
 */

enum class WakeWord : uint32_t;   ///< see mailbox/wake_state.h
enum class StackHead : uint32_t;  ///< see mailbox/take_all_stack.h

constexpr uint32_t arenaMagic = 0x4c6e7841;  // reads differently on a machine of the other byte order
constexpr uint32_t arenaVersion = 4;
constexpr uint32_t maxNameLength = 255;
constexpr uint32_t huntCount = 4096;
constexpr Spid noHome = Spid::none;  ///< home of a block that lies in the central lists

/// How often something is done that takes long, see throttle.h.
struct Pace {
    Word at;    ///< milliseconds: when it was done last
    Word took;  ///< microseconds
};

/*
 * Invariants of the header and the tables, for whoever holds the domain lock. Here and below they are those that
 * debug/validate.h compares an arena with; a star marks those that hold only while nobody is at work.
 *
 *   slotsUsed < slots, huntsUsed <= hunts, pagesUsed <= pageCount
 *   openEndpoints = open slots
 *   longestGap >= free pages side by side
 *   centralLines = lines in the central lists
 *   quarantineTail = last in quarantine
 *
 *   name table: slots in it = open slots
 *   bucket: its slots are open
 *   slot in a bucket: its bucket is that of nameHash
 *   quarantine: slots in it = used slots that are not open; its slots have been used and are not open
 *   slot in quarantine: the quarantine is in the order of its stamps
 *   central list: its blocks are of its class, free and without a home
 *   page: it is free, or of one run that is whole; it is free from pagesUsed on (*)
 *
 * A list whose length is counted elsewhere holds nothing twice.
 */
struct Header {
    // Written once, before the file gets its name.
    Word magic;
    Word version;
    Word headerBytes;
    Word slotBytes;
    Word slots;
    Word huntBytes;
    Word hunts;
    Word pageCount;
    Word filePages;
    Word sizeClasses;
    Word eventBytes;
    Word reserved[4];

    Word tap;  ///< the number of the tap into which signals are to be copied, see record/tap_file.h; 0: none

    // Guarded by the domain lock; but anybody may raise the pressure, and add to what reclaiming took.
    Word dirty;          ///< 1 while the domain lock is held; found set, its holder died and repair() has work
    Word slotsUsed;      ///< slots 1 to slotsUsed have been used at least once
    Word openEndpoints;  ///< how many there are; decides what each may keep for itself
    WordOf<SlotIndex> quarantineHead;  ///< first of the chain of ended slots, the oldest
    WordOf<SlotIndex> quarantineTail;  ///< its last
    Word quarantined;   ///< counts endings: the stamp that orders ended slots when the chain is rebuilt
    Word huntsUsed;     ///< hunt entries 0 to huntsUsed-1 may be in use
    Word pagesUsed;     ///< pages below have been leased at least once
    Word longestGap;    ///< upper bound of adjoining free pages among these
    Word gapHint;       ///< where the search for gaps resumes
    Word centralLines;  ///< in the lists below
    Word centralLeast;  ///< the least of that since memory was reclaimed last
    Word pressure;      ///< counts the times that memory ran out: each has endpoints give up what they keep
    Word pressedAt;     ///< milliseconds: when it was raised last
    Word pressureMet;   ///< the count when memory was reclaimed last
    Pace reclaiming;    ///< of memory
    Pace reaping;       ///< of whoever has died
    WordOf<Ref> central[sizeClassCount];  ///< lists of free blocks without a home, a class each
};
static_assert(sizeof(Header) == 140 + 4 * sizeClassCount && offsetof(Header, tap) == 60 && offsetof(Header, dirty) == 64 &&
                  offsetof(Header, central) == 140 && std::is_standard_layout<Header>::value,
              "the header's layout is shared by every process of the domain");
static_assert(sizeof(Header) <= pageBytes, "the header fits its page");

/// A 64-bit count that one process writes and any may read; a reader may see a torn value. Relaxed: it publishes
/// nothing else. Nor do `deepestQueue`, `sleeps` and `rings` of a slot.
struct Counter {
    Word low;
    Word high;

    void add(uint32_t n) {
        const uint32_t sum = low.loadRelaxed() + n;
        if (sum < n) high.storeRelaxed(high.loadRelaxed() + 1);
        low.storeRelaxed(sum);
    }
    uint64_t value() const { return (uint64_t{high.loadRelaxed()} << 32) | low.loadRelaxed(); }
};

/*
 * Invariants of a slot that has been used:
 *
 *   indexOf(life) = its own, unless it was never used
 *   its stacks are empty unless it is open (*)
 *   mailboxClaim = none, returnedClaim = none (*)
 *
 * and of one that is open:
 *
 *   wakeState, leasedLines (*) and life are of one generation
 *   tag of mailbox = tag of partings (*)
 *   the links of a stack lead from block to block, and the blocks of a stack are in flight to its slot (*)
 *   leasedLines = lines of the blocks whose home it is (*); more where somebody died between a block and this count
 *   findName(its name) = its spid (*)
 *   options = those that there are
 */
constexpr uint32_t knownOptions = LINX_OPEN_LINK;

/// An endpoint's entry. Its lines are grouped by who writes them, so that nobody's writes slow a reader of others'.
struct alignas(lineBytes) Slot {
    // Senders write.
    WordOf<StackHead> mailbox;   ///< last block pushed by a sender
    WordOf<WakeWord> wakeState;  ///< whether a push must ring
    Word partings;  ///< counts how often the endpoint has ceased to watch somebody, see mailbox/introduction.h
    uint32_t pad0[13];

    // Those who free this endpoint's blocks write.
    WordOf<StackHead> returned;  ///< last block given back
    Word returnedLines;          ///< about how much is in there
    uint32_t pad1[14];

    // Only the endpoint writes (and its reaper).
    WordOf<Ref> mailboxClaim;   ///< the chain being taken from `mailbox`
    WordOf<Ref> returnedClaim;  ///< the chain being taken from `returned`
    WordOf<Ref> sending;        ///< the block pushed last, or about to be
    Word deepestQueue;
    Word sleeps;
    Word rings;
    ToldWord recorded;  ///< the event recorded last, or about to be, see record/recorder.h
    ToldWord logMask;   ///< of its process; who changes it has the process log by another from its next receive on
    Traffic traffic;    ///< sent; and received, its own time-outs and notices too

    // Everybody reads; changes when the endpoint opens, ends or forks.
    WordOf<LifeWord> life;
    Word forkRound;  ///< who owns the endpoint after a fork, see Ownership::claim
    Word nameHash;
    Word nameLength;
    WordOf<SlotIndex> nextInBucket;
    WordOf<SlotIndex> nextInQuarantine;
    Word quarantineStamp;
    Word leasedLines;  ///< lines of the pool whose home this endpoint is, see share.h
    Word options;  ///< with which it was opened
    Maker maker;   ///< the process that has it
    uint32_t pad2[3];

    // Only the endpoint writes, when something is out of the ordinary.
    Waiting waiting;
    Counter dropped;  ///< signals that it could not send, or that were not for it
    Refusals refused;

    Word name[64];
};
static_assert(sizeof(Slot) == 576 && offsetof(Slot, returned) == 64 && offsetof(Slot, mailboxClaim) == 128 &&
                  offsetof(Slot, sending) == 136 && offsetof(Slot, recorded) == 152 && offsetof(Slot, traffic) == 160 &&
                  offsetof(Slot, life) == 192 && offsetof(Slot, leasedLines) == 220 &&
                  offsetof(Slot, options) == 224 && offsetof(Slot, maker) == 228 && offsetof(Slot, waiting) == 256 &&
                  offsetof(Slot, dropped) == 296 && offsetof(Slot, name) == 320 && alignof(Slot) == lineBytes &&
                  std::is_standard_layout<Slot>::value,
              "the slot's layout is shared by every process of the domain");

/// Who hunts, and whether that is being answered: from before the signal is pushed until the entry is cleared.
enum class HunterWord : uint32_t { none = 0 };

constexpr uint32_t huntAnswering = 1u << 31;

constexpr HunterWord huntedBy(Spid spid) {
    return HunterWord{numberOf(spid)};
}
constexpr HunterWord answeredTo(Spid spid) {
    return HunterWord{numberOf(spid) | huntAnswering};
}
constexpr Spid spidOf(HunterWord hunter) {
    return Spid{numberOf(hunter) & spidMask};
}
constexpr bool isAnswering(HunterWord hunter) {
    return (numberOf(hunter) & huntAnswering) != 0;
}

/// A hunt for a name that nobody has opened yet. In use while it has a hunter. Invariants: its hunter is open; its
/// signal is queued for its hunter; the last of huntsUsed is in use.
struct Hunt {
    WordOf<HunterWord> hunter;
    WordOf<Ref> signal;  ///< owned by the hunter, queued
    Word nameHash;
    Word nameLength;
    Word name[64];
};
static_assert(sizeof(Hunt) == 272 && alignof(Hunt) == 4 && offsetof(Hunt, name) == 16,
              "the hunt's layout is shared by every process of the domain");

/// A block holds one signal.
///
/// Invariants (*): a block is in one place. Without owner and home it is in a central list; without owner, its home
/// is open; in flight, it is in a stack; held or queued, its owner is open. One that is in no such place is lost.
struct Block {
    WordOf<Ref> next;
    WordOf<OwnerWord> owner;
    WordOf<Spid> home;
    WordOf<Spid> sender;
    Word size;  ///< of the signal, number word included
    WordOf<Spid, Told> keptBy;  ///< with `due`: see record/kept.h
    ToldWord due;
    LinxSignal signal;  ///< number word, then the payload, 16-byte aligned
};
static_assert(sizeof(Block) == 32 && alignof(Block) == 4 && offsetof(Block, size) == 16 &&
                  offsetof(Block, signal) == 28,
              "the block's layout is shared by every process of the domain, and the payload starts 16-byte aligned");

/// The sender as a spid, whatever others have left in the word. Relaxed: it goes with the owner.
inline Spid senderOf(const Block& block) {
    return Spid{numberOf(block.sender.loadRelaxed()) & spidMask};
}

constexpr uint32_t maxSignalBytes = 1u << 20;
constexpr bool isSignalSize(uint32_t bytes) {
    return bytes >= sizeof(LinxSignal) && bytes <= maxSignalBytes;
}
constexpr Lines linesForSignal(uint32_t bytes) {
    return Lines{(static_cast<uint32_t>(offsetof(Block, signal)) + bytes + lineBytes - 1) / lineBytes};
}
static_assert(linesForSignal(maxSignalBytes) <= largestClassLines, "the largest signal has a class");

/// The longest payload that a block of each class holds, in bytes.
constexpr std::array<uint32_t, sizeClassCount> makePayloadRoom() {
    std::array<uint32_t, sizeClassCount> room{};
    for (uint32_t c = 0; c < sizeClassCount; ++c) {
        room[c] = classLines[c] * lineBytes - static_cast<uint32_t>(offsetof(Block, signal) + sizeof(LinxSignal));
    }
    return room;
}

inline constexpr std::array<uint32_t, sizeClassCount> payloadRoom = makePayloadRoom();

inline Block* blockOf(LinxSignal* signal) {
    return reinterpret_cast<Block*>(reinterpret_cast<char*>(signal) - offsetof(Block, signal));
}

// Where things lie in the file.
constexpr uint32_t bucketsOffset = pageBytes;
constexpr uint32_t slotsOffset = bucketsOffset + slotCount * 4;
constexpr uint32_t huntsOffset = slotsOffset + slotCount * static_cast<uint32_t>(sizeof(Slot));
constexpr uint32_t eventsOffset = huntsOffset + huntCount * static_cast<uint32_t>(sizeof(Hunt));
constexpr uint32_t pageMapOffset = eventsOffset + slotCount * static_cast<uint32_t>(sizeof(EventRing));
static_assert(huntsOffset % pageBytes == 0 && eventsOffset % pageBytes == 0 && pageMapOffset % pageBytes == 0,
              "tables start on a page");
static_assert(slotsOffset == 0x9000 && huntsOffset == 0x489000 && eventsOffset == 0x599000 &&
                  pageMapOffset == 0x1599000,
              "the tables lie in the same place for every process of the domain");

/// The first page of the pool, by the number of its page in the file.
constexpr uint32_t firstPoolPage(uint32_t pageCount) {
    return pageMapOffset / pageBytes + (pageCount * 4 + pageBytes - 1) / pageBytes;
}

// A word of the page map: 0 free, else size class + 1 in the upper byte, pages back to the start of the run below.
constexpr uint32_t makePageEntry(SizeClassId sizeClass, uint32_t back) {
    return ((sizeClass + 1) << 24) | back;
}
constexpr uint32_t entryBack(uint32_t entry) {
    return entry & 0xffffff;
}
constexpr SizeClassId entryClass(uint32_t entry) {
    return SizeClassId{(entry >> 24) - 1};
}

}  // namespace linx

#endif
