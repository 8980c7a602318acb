#ifndef LINXIPC_HOST_RECORD_TAP_FILE_H
#define LINXIPC_HOST_RECORD_TAP_FILE_H

#include "host/arena/layout.h"

namespace linx {

/*
 * A tap: signals are copied while they are sent, for a process that captures them. That process makes the file, puts
 * its number into the arena's header, and holds a lock on the file as long as it lives. Each sender has a lane of its
 * own in it, so that none waits for another; nor for the reader: what does not fit is counted.
 *
 *   0         TapHeader
 *   4 KiB     TapLane of each slot
 *   68 KiB    a ring for each slot: a page with its counts, then `ringBytes`; memory when its slot first sends
 *
 * In a ring lie entries, each with the first bytes of its payload behind it, rounded up to eight bytes. All numbers
 * are of the machine. Both sides take what the other one writes for garbage.
 */
namespace tap {

constexpr const char* fileName = "tap";
constexpr uint32_t magic = 0x4c6e7854;

struct Header {
    Word magic;
    Word id;         ///< what the arena's header says while this is the tap
    Word ringBytes;  ///< a power of two
    Word snapBytes;  ///< of each payload, at most
};

struct Lane {
    Word isOpen;  ///< there is a ring
    Word lost;    ///< signals that did not fit, or for which there was no ring
};

struct Counts {
    Word written;  ///< bytes since the ring was made, modulo 2^32; by the sender
    Word read;     ///< by the reader
};

struct alignas(8) Entry {
    uint64_t nanoseconds;  ///< of the real-time clock
    Spid from;
    Spid to;
    uint32_t number;
    uint32_t size;
    uint32_t dataBytes;
    uint32_t reserved;
};
static_assert(sizeof(Entry) == 32 && sizeof(Lane) == 8 && sizeof(Counts) <= pageBytes,
              "the tap's layout is shared by every process of the domain");

constexpr uint32_t leastRingBytes = 128 * 1024;
constexpr uint32_t mostRingBytes = 8 * 1024 * 1024;
constexpr uint32_t lanesOffset = pageBytes;
constexpr uint32_t ringsOffset = lanesOffset + slotCount * static_cast<uint32_t>(sizeof(Lane));
static_assert(ringsOffset % pageBytes == 0, "rings start on a page");

constexpr bool isRingSize(uint32_t bytes) {
    return bytes >= leastRingBytes && bytes <= mostRingBytes && (bytes & (bytes - 1)) == 0;
}

/// Where the ring of a slot begins, its counts.
constexpr uint64_t ringOffset(uint32_t ringBytes, SlotIndex index) {
    return ringsOffset + uint64_t{numberOf(index)} * (uint64_t{pageBytes} + ringBytes);
}
constexpr uint64_t fileBytes(uint32_t ringBytes) {
    return ringOffset(ringBytes, SlotIndex{slotCount});
}
constexpr uint32_t entryBytes(uint32_t dataBytes) {
    return static_cast<uint32_t>(sizeof(Entry)) + (dataBytes + 7) / 8 * 8;
}

/// Opens the tap in a domain's directory, for reading and writing. -1 with errno.
int open(int directory);

/// Whether the process that made the tap still has it. A file of which that cannot be asked counts as one.
bool hasOwner(int file);

/// Has the tap belong to this process, until it closes the file. False when another one that lives has it.
bool own(int file);

/// Removes the name of this tap, which is one's own, unless another has it by now. Its memory goes when the last sender
/// that has a ring of it has sent again or ended: taken away before, a full file system would kill who writes there.
/// False with errno.
bool remove(int directory, int file);

}  // namespace tap
}  // namespace linx

#endif
