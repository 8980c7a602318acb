#ifndef LINXIPC_HOST_ARENA_TOLD_H
#define LINXIPC_HOST_ARENA_TOLD_H

#include "host/arena/spid.h"
#include "host/arena/word.h"

namespace linx {

/*
 * What an endpoint tells of itself, for those who look into the domain: `linx` and the like, which copy the file. No
 * operation depends on any of it, and only the endpoint writes it. So these are plain numbers: adding to one takes
 * one instruction, where an atomic takes three. Half of a 64-bit number may be seen without the other where a
 * machine has no such store.
 */

/// Signals that went through an endpoint, and their bytes: number words included, as a receive returns the size.
/// What one signal adds to does not lie side by side, or compilers add both at once, by twice the instructions.
struct alignas(8) Traffic {
    uint64_t signalsOut;
    uint64_t signalsIn;
    uint64_t bytesOut;
    uint64_t bytesIn;
};

/// The process that has an endpoint: since it was opened, or claimed after a fork. All 0 where /proc tells nothing.
struct Maker {
    uint32_t process;
    uint32_t user;       ///< the effective one
    uint32_t processes;  ///< inode of the namespace in which `process` is its number
    uint32_t started;    ///< as /proc says, in clock ticks since the boot: tells it from another of the same number
};

/// What an endpoint waits for while it sleeps in a receive.
struct alignas(8) Waiting {
    static constexpr uint32_t mostNumbers = 4;

    uint64_t since;                 ///< nanoseconds of the monotonic clock; 0 while it does not sleep
    Spid to;                        ///< to whom it sent last
    uint32_t sent;                  ///< which number
    uint32_t count;                 ///< of the selected numbers; 0: any signal
    uint32_t numbers[mostNumbers];  ///< the first of them
};

/// Signals that were not sent, by reason; those of other reasons are only in the sum, `dropped`.
struct Refusals {
    uint32_t ended;          ///< the receiver has ended: ECONNRESET
    uint32_t neverThere;     ///< there never was such a receiver: ESRCH
    uint32_t noMemory;       ///< ENOMEM
    uint32_t noDescriptors;  ///< EMFILE, ENFILE
};

}  // namespace linx

#endif
