#include "models/machine/kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "models/machine/hash.h"
#include "models/machine/scheduler.h"

namespace model {
namespace {

constexpr int firstFile = 9000;   ///< no number of another descriptor
constexpr uint32_t readable = 1;  // as EPOLLIN
constexpr uint32_t broken = 8;    // as EPOLLERR

constexpr char tryingToLock[] = "tries to lock";

bool always() {
    return true;
}

}  // namespace

Kernel kernel;

void Kernel::reset() {
    const uint64_t files = now_.files;  // of the domain that the real process has joined
    now_ = State();
    now_.files = files;
    now_.lockedBy = nobody;
}

size_t Kernel::doorbellsUsed() const {
    size_t used = 0;
    while (used < maxDoorbells && now_.doorbells[used].spid != 0) ++used;
    return used;
}

/// The running thread does something to an object, as under a lock of the object.
void Kernel::meet(size_t object) {
    if (scheduler.running()) memory.synchronise(scheduler.thread(), now_.views[object]);
}

unsigned Kernel::countDescriptors(unsigned process) const {
    unsigned count = 0;
    for (const Descriptor& one : now_.descriptors) count += one.kind != Kind::none && one.process == process ? 1 : 0;
    return count;
}

void Kernel::limitDescriptors(unsigned process, unsigned more) {
    now_.mostDescriptors[process] = static_cast<uint8_t>(countDescriptors(process) + more);
}

bool Kernel::isInUse(Kind kind, size_t object) const {
    return std::any_of(now_.descriptors.begin(), now_.descriptors.end(),
                       [kind, object](const Descriptor& one) { return one.kind == kind && one.object == object; });
}

int Kernel::add(Kind kind, size_t object) {
    const unsigned process = scheduler.thread();
    const unsigned most = now_.mostDescriptors[process];
    if (most != 0 && countDescriptors(process) >= most) {
        errno = EMFILE;
        return -1;
    }
    for (size_t i = 0; i < maxDescriptors; ++i) {
        if (now_.descriptors[i].kind != Kind::none) continue;
        now_.descriptors[i] = {kind, static_cast<uint8_t>(process), static_cast<uint8_t>(object), never};
        return firstDescriptor + static_cast<int>(i);
    }
    scheduler.abandon("more descriptors than the model holds");
    return -1;
}

size_t Kernel::findDoorbell(uint32_t spid) const {
    size_t doorbell = 0;
    while (doorbell < maxDoorbells && now_.doorbells[doorbell].spid != spid) ++doorbell;
    return doorbell;
}

/// One that was removed and that nobody holds any more.
size_t Kernel::findUnusedDoorbell() const {
    const size_t used = doorbellsUsed();
    size_t doorbell = 0;
    while (doorbell < used &&
           (now_.doorbells[doorbell].named || isInUse(Kind::reader, doorbell) || isInUse(Kind::writer, doorbell)))
        ++doorbell;
    return doorbell < used ? doorbell : maxDoorbells;
}

int Kernel::makeDoorbell(uint32_t spid) {
    scheduler.call("makes its doorbell", true, always);
    size_t doorbell = findDoorbell(spid);
    if (doorbell == maxDoorbells && !scheduler.running()) doorbell = findUnusedDoorbell();
    if (doorbell == maxDoorbells) doorbell = doorbellsUsed();
    if (doorbell == maxDoorbells) scheduler.abandon("more doorbells than the model holds");
    now_.doorbells[doorbell] = {spid, true, 1, 0, {}};
    meet(viewOf(doorbell));
    return add(Kind::reader, doorbell);
}

int Kernel::openDoorbell(uint32_t spid) {
    scheduler.call("opens a doorbell", false, always);
    const size_t doorbell = findDoorbell(spid);
    if (doorbell == maxDoorbells || !now_.doorbells[doorbell].named || now_.doorbells[doorbell].readers == 0) {
        // Whoever finds the reader gone, or the doorbell removed, comes after that.
        if (doorbell != maxDoorbells) meet(viewOf(doorbell));
        errno = doorbell == maxDoorbells || !now_.doorbells[doorbell].named ? ENOENT : ENXIO;
        scheduler.observed(static_cast<uint64_t>(errno));
        return -1;
    }
    const int descriptor = add(Kind::writer, doorbell);
    scheduler.observed(descriptor == -1 ? EMFILE : 0);
    return descriptor;
}

void Kernel::removeDoorbell(uint32_t spid) {
    scheduler.call("removes a doorbell", true, always);
    const size_t doorbell = findDoorbell(spid);
    if (doorbell == maxDoorbells) return;
    meet(viewOf(doorbell));
    now_.doorbells[doorbell].named = false;
}

int Kernel::openFile() {
    int number = 0;
    while ((now_.files >> number & 1) != 0) ++number;
    now_.files |= uint64_t{1} << number;
    return firstFile + number;
}

bool Kernel::closeFile(int descriptor) {
    if (descriptor < firstFile || descriptor >= firstFile + 64) return false;
    now_.files &= ~(uint64_t{1} << (descriptor - firstFile));
    return true;
}

int Kernel::writeDoorbell(int descriptor, uint32_t record) {
    uint8_t& failuresLeft = now_.failuresLeft[scheduler.thread()];
    const uint32_t ways = failuresLeft != 0 ? 2 : 1;
    const bool fails = scheduler.call(record == 0 ? "rings" : "introduces itself", true, always, ways) != 0;
    const size_t number = at(descriptor).object;
    Doorbell& doorbell = now_.doorbells[number];
    meet(viewOf(number));
    const int result = doorbell.readers == 0                ? EPIPE
                       : doorbell.count == doorbellCapacity ? EAGAIN
                       : fails                              ? ENOMEM
                                                            : 0;
    if (result == ENOMEM) --failuresLeft;
    if (result == 0) doorbell.records[doorbell.count++] = record;
    scheduler.observed(static_cast<uint64_t>(result));
    return result;
}

unsigned Kernel::drainDoorbell(int descriptor, uint32_t* records) {
    scheduler.call("empties its doorbell", true, always);
    const size_t number = at(descriptor).object;
    Doorbell& doorbell = now_.doorbells[number];
    meet(viewOf(number));
    const unsigned count = doorbell.count;
    std::memcpy(records, doorbell.records, count * sizeof *records);
    for (unsigned i = 0; i < count; ++i) scheduler.observed(doorbell.records[i]);
    scheduler.observed(count);
    doorbell.count = 0;
    return count;
}

bool Kernel::isDoorbellDead(int descriptor) {
    scheduler.call("asks a doorbell", false, always);
    const size_t number = at(descriptor).object;
    const bool dead = now_.doorbells[number].readers == 0;
    if (dead) meet(viewOf(number));
    scheduler.observed(dead ? 1 : 0);
    return dead;
}

int Kernel::lockArena(bool waits) {
    if (waits) scheduler.call("locks", true, [this] { return now_.lockedBy == nobody; });
    // Others had their chance to let go of it before the second attempt.
    if (!waits && !scheduler.isRepeating(tryingToLock)) scheduler.call(tryingToLock, true, always);
    const bool isFree = now_.lockedBy == nobody;
    scheduler.observed(isFree ? 1 : 0);
    if (!isFree) {
        errno = EWOULDBLOCK;
        return -1;
    }
    now_.lockedBy = static_cast<uint8_t>(scheduler.thread());
    meet(lockView);
    return 0;
}

int Kernel::unlockArena() {
    scheduler.call("unlocks", true, always);
    unlock();
    return 0;
}

void Kernel::unlock() {
    meet(lockView);
    now_.lockedBy = nobody;
}

int Kernel::makeSet() {
    size_t number = 0;
    while (isInUse(Kind::set, number)) ++number;
    return add(Kind::set, number);
}
int Kernel::makeTimer() {
    return add(Kind::timer, 0);
}
int Kernel::duplicate(int descriptor) {
    return add(at(descriptor).kind, at(descriptor).object);
}

int Kernel::watch(int set, int descriptor, uint32_t events, uint32_t tag) {
    for (Watch& watch : now_.watches) {
        if (watch.used) continue;
        watch = {true, static_cast<uint8_t>(setOf(set)), static_cast<uint8_t>(descriptor - firstDescriptor), events,
                 tag};
        return 0;
    }
    scheduler.abandon("more watches than the model holds");
    return -1;
}

int Kernel::unwatch(int set, int descriptor) {
    for (Watch& watch : now_.watches) {
        if (watch.used && watch.set == setOf(set) && watch.descriptor == descriptor - firstDescriptor) {
            watch.used = false;
        }
    }
    return 0;
}

uint32_t Kernel::eventsOf(const Watch& watch) const {
    const Descriptor& descriptor = now_.descriptors[watch.descriptor];
    if (descriptor.kind == Kind::timer) {
        return scheduler.timeOf(descriptor.process) >= descriptor.deadline ? watch.events & readable : 0;
    }
    if (descriptor.kind != Kind::reader && descriptor.kind != Kind::writer) return 0;
    const Doorbell& doorbell = now_.doorbells[descriptor.object];
    if (descriptor.kind == Kind::reader) return doorbell.count != 0 ? watch.events & readable : 0;
    return doorbell.readers == 0 ? broken : 0;
}

bool Kernel::hasEvents(size_t set) const {
    for (const Watch& watch : now_.watches) {
        if (watch.used && watch.set == set && eventsOf(watch) != 0) return true;
    }
    return false;
}

/// Of the earliest timer in the set.
uint64_t Kernel::deadlineOf(size_t set) const {
    uint64_t earliest = never;
    for (const Watch& watch : now_.watches) {
        const Descriptor& descriptor = now_.descriptors[watch.descriptor];
        if (watch.used && watch.set == set && descriptor.kind == Kind::timer) {
            earliest = std::min(earliest, descriptor.deadline);
        }
    }
    return earliest;
}

/// Waits until something happens to what is in the set, or until the deadline.
void Kernel::sleepUntil(const char* name, size_t set, uint64_t deadline) {
    const auto ready = [this, set] { return hasEvents(set); };
    const uint64_t earliest = std::min(deadline, deadlineOf(set));
    if (earliest == never) {
        scheduler.call(name, false, ready);
    } else {
        scheduler.sleep(name, ready, earliest);
    }
}

int Kernel::waitFor(int set, Event* events, int most, int milliseconds) {
    const size_t number = setOf(set);
    if (milliseconds == 0) {
        scheduler.call("asks for events", false, always);
    } else {
        const uint64_t limit = static_cast<uint64_t>(milliseconds) * 1000;
        sleepUntil("sleeps", number, milliseconds < 0 ? never : scheduler.timeOf(scheduler.thread()) + limit);
    }
    int count = 0;
    for (const Watch& watch : now_.watches) {
        if (!watch.used || watch.set != number || count == most) continue;
        const uint32_t found = eventsOf(watch);
        if (found == 0) continue;
        if (now_.descriptors[watch.descriptor].kind != Kind::timer) {
            meet(viewOf(now_.descriptors[watch.descriptor].object));
        }
        scheduler.observed((uint64_t{found} << 32) | watch.tag);
        events[count++] = {found, watch.tag};
    }
    scheduler.observed(static_cast<uint64_t>(count));
    return count;
}

void Kernel::pollFor(int set) {
    sleepUntil("polls", setOf(set), never);
}

void Kernel::await(std::function<bool()> ready) {
    scheduler.call("waits", false, std::move(ready));
    meet(tellingView);
}

void Kernel::closeFor(size_t descriptor) {
    Descriptor& closed = now_.descriptors[descriptor];
    if (closed.kind == Kind::reader) {
        meet(viewOf(closed.object));
        --now_.doorbells[closed.object].readers;
    }
    const Descriptor before = closed;
    closed = Descriptor();
    const bool endsSet = before.kind == Kind::set && !isInUse(Kind::set, before.object);
    for (Watch& watch : now_.watches) {
        if (watch.descriptor == descriptor || (endsSet && watch.set == before.object)) watch.used = false;
    }
}

void Kernel::close(int descriptor) {
    const auto number = static_cast<size_t>(descriptor - firstDescriptor);
    // Letting go of the lock, or of the reading end, is seen by others; what is written by then must be.
    if (now_.descriptors[number].kind == Kind::reader) scheduler.call("closes its doorbell", true, always);
    closeFor(number);
}

void Kernel::exit(unsigned process) {
    const unsigned before = scheduler.thread();
    scheduler.actAs(process);
    for (size_t i = 0; i < maxDescriptors; ++i) {
        if (now_.descriptors[i].kind != Kind::none && now_.descriptors[i].process == process) closeFor(i);
    }
    if (now_.lockedBy == process) unlock();
    tell();
    scheduler.actAs(before);
}

uint64_t Kernel::hash(uint64_t seed, unsigned liveThreads) const {
    Hash hash(seed);
    const size_t doorbells = doorbellsUsed();
    for (size_t i = 0; i < doorbells; ++i) {
        const Doorbell& doorbell = now_.doorbells[i];
        hash.add(uint64_t{doorbell.spid} << 32 | uint64_t{doorbell.named} << 16 | uint64_t{doorbell.readers} << 8 |
                 doorbell.count);
        for (unsigned r = 0; r < doorbell.count; ++r) hash.add(doorbell.records[r]);
    }
    // Which descriptors a thread has follows from its history; who holds the lock does too, but for the dead.
    hash.add(now_.lockedBy);
    return memory.hash(hash.value(), now_.views.data(), viewOf(doorbells), liveThreads);
}

}  // namespace model
