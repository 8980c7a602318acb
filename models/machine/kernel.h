#ifndef LINXIPC_MODELS_MACHINE_KERNEL_H
#define LINXIPC_MODELS_MACHINE_KERNEL_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "models/machine/memory.h"

namespace model {

/*
 * As much of an operating system as endpoints use: doorbells, sets of watched descriptors, the lock on the arena's
 * file, and the end of a process, which closes all that it had open. The source under exploration calls it instead of
 * the real one: doorbell.h, arena_file.h and domain_path.h are implemented on it, and the system calls made elsewhere
 * are wrapped by the linker.
 */
class Kernel {
public:
    /// As it is when no process runs.
    void reset();

    void begin() { beginning_ = now_; }
    void rewind() { now_ = beginning_; }

    /// The number of a file or a directory that is opened: the lowest that is free. What lies there does not matter.
    int openFile();
    /// False when it is the number of no such file.
    bool closeFile(int descriptor);

    /// From now on so many of a process's writes to doorbells may fail for want of memory, whichever they are.
    void failWrites(unsigned process, uint8_t most) { now_.failuresLeft[process] = most; }

    /// From now on a process may have no more descriptors than it has, and so many.
    void limitDescriptors(unsigned process, unsigned more);

    /// The process is killed: all that it had open is closed.
    void exit(unsigned process);

    uint64_t hash(uint64_t seed, unsigned liveThreads) const;

    // -1 with errno EMFILE where a process may have no more descriptors.

    // Doorbells, by spid. -1 with errno, 0 or an errno value, as doorbell.h says.
    int makeDoorbell(uint32_t spid);
    int openDoorbell(uint32_t spid);
    void removeDoorbell(uint32_t spid);
    int writeDoorbell(int descriptor, uint32_t record);
    unsigned drainDoorbell(int descriptor, uint32_t* records);
    bool isDoorbellDead(int descriptor);

    /// Some process that does nothing has a copy of the reading end of a doorbell, for good.
    void copyDoorbell(uint32_t spid) { ++now_.doorbells[findDoorbell(spid)].readers; }

    /// The lock on the arena's file, of the running process. -1 with EWOULDBLOCK when it is not to wait.
    int lockArena(bool waits);
    int unlockArena();

    int makeSet();
    int watch(int set, int descriptor, uint32_t events, uint32_t tag);
    int unwatch(int set, int descriptor);
    struct Event {
        uint32_t events;
        uint32_t tag;
    };
    int waitFor(int set, Event* events, int most, int milliseconds);

    /// Waits in a poll loop of one's own until the set is readable.
    void pollFor(int set);

    /// What processes tell each other in other ways: who waits until `ready` comes after all that was done by those
    /// who have told something.
    void tell() { meet(tellingView); }
    void await(std::function<bool()> ready);

    int makeTimer();
    /// From `deadline` on, as the process's precise clock shows it, it is readable.
    void setTimer(int descriptor, uint64_t deadline) { at(descriptor).deadline = deadline; }
    static constexpr uint64_t never = ~uint64_t{0};
    int duplicate(int descriptor);
    void close(int descriptor);
    bool owns(int descriptor) const { return descriptor >= firstDescriptor; }

    static constexpr unsigned doorbellCapacity = 4;

private:
    static constexpr int firstDescriptor = 10000;
    static constexpr size_t maxDoorbells = 12;
    static constexpr size_t maxDescriptors = 96;
    static constexpr size_t maxWatches = 48;
    static constexpr uint8_t nobody = 0xff;
    static constexpr size_t lockView = 0;
    static constexpr size_t tellingView = 1;
    static constexpr size_t viewOf(size_t doorbell) { return doorbell + 2; }

    enum class Kind : uint8_t { none, reader, writer, set, timer };
    struct Descriptor {
        Kind kind;
        uint8_t process;
        uint8_t object;     ///< the number of the doorbell, or of the set
        uint64_t deadline;  ///< of a timer
    };
    struct Doorbell {
        uint32_t spid;
        bool named;
        uint8_t readers;
        uint8_t count;
        uint32_t records[doorbellCapacity];
    };
    struct Watch {
        bool used;
        uint8_t set;
        uint8_t descriptor;
        uint32_t events;
        uint32_t tag;
    };
    struct State {
        std::array<Doorbell, maxDoorbells> doorbells;
        std::array<Descriptor, maxDescriptors> descriptors;
        std::array<Watch, maxWatches> watches;
        uint64_t files;                                   ///< those that are open, a bit each
        uint8_t lockedBy;                                 ///< the process
        std::array<uint8_t, maxThreads> failuresLeft;     ///< by process
        std::array<uint8_t, maxThreads> mostDescriptors;  ///< by process; 0: as many as it wants
        std::array<View, maxDoorbells + 1> views;         ///< of the lock, then of the doorbells
    };

    int add(Kind kind, size_t object);
    unsigned countDescriptors(unsigned process) const;
    bool isInUse(Kind kind, size_t object) const;
    Descriptor& at(int descriptor) { return now_.descriptors[static_cast<size_t>(descriptor - firstDescriptor)]; }
    size_t setOf(int descriptor) { return at(descriptor).object; }
    size_t findDoorbell(uint32_t spid) const;
    size_t findUnusedDoorbell() const;
    uint32_t eventsOf(const Watch& watch) const;
    bool hasEvents(size_t set) const;
    uint64_t deadlineOf(size_t set) const;
    void sleepUntil(const char* name, size_t set, uint64_t deadline);
    void meet(size_t object);
    void closeFor(size_t descriptor);
    void unlock();
    size_t doorbellsUsed() const;

    State now_{};
    State beginning_{};
};

extern Kernel kernel;

/// For traces: which field of the arena a word is. Implemented by those who know the layout.
std::string nameOfWord(const uint32_t* word);

}  // namespace model

#endif
