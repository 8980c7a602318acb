#include "inspect/tap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <deque>
#include <iterator>
#include <limits>
#include <random>
#include <string>

#include "host/arena/arena_file.h"
#include "host/record/tap_file.h"
#include "host/system/clock.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace inspect {
namespace {

constexpr timespec pause = {0, 2 * nanosecondsPerMillisecond};  ///< between two looks at the rings

uint32_t ringBytesFor(uint32_t snapBytes) {
    uint32_t bytes = tap::leastRingBytes;
    while (bytes < tap::mostRingBytes && bytes / 4 < tap::entryBytes(snapBytes)) bytes *= 2;
    return bytes;
}

/// Has all who may join the domain open the file, also where the superuser makes it in somebody's domain. Those who
/// may not give a file away are the owner of the domain, or share its group.
void giveToMembers(int file, const struct stat& arena) {
    if (fchown(file, arena.st_uid, arena.st_gid) == -1) (void)!fchown(file, static_cast<uid_t>(-1), arena.st_gid);
}

/// Removes the tap that a dead process has left. False with errno: EBUSY when it lives.
bool removeLeftover(int directory) {
    const ScopedDescriptor file(tap::open(directory));
    if (file.get() == -1) return errno == ENOENT;
    if (!tap::own(file.get())) {
        errno = EBUSY;
        return false;
    }
    return tap::remove(directory, file.get());
}

/// Copies bytes out of a ring, round its end.
void readFrom(const char* data, uint32_t ringBytes, uint32_t at, void* to, uint32_t count) {
    if (count == 0) return;  // `to` may be null
    const uint32_t start = at & (ringBytes - 1);
    const uint32_t first = std::min(count, ringBytes - start);
    std::memcpy(to, data + start, first);
    std::memcpy(static_cast<char*>(to) + first, data, count - first);
}

struct Unmap {
    size_t bytes;
    void operator()(void* base) const { munmap(base, bytes); }
};
using Mapping = std::unique_ptr<void, Unmap>;

Mapping map(int file, uint64_t offset, size_t bytes) {
    void* base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, static_cast<off_t>(offset));
    return Mapping(base == MAP_FAILED ? nullptr : base, {bytes});
}

uint64_t realTime() {
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    return toNanoseconds(time);
}

/// What one sender copies, and how far it has been read.
struct Lane {
    Mapping mapping;
    uint32_t read = 0;
};

}  // namespace

/// The rings of all senders.
struct Tap::Ring {
    ~Ring();
    bool make(const Place& place, uint32_t snapBytes);
    bool fill(uint32_t snapBytes);
    bool claimName();
    bool announce(const Place& place);
    void withdraw() const;
    const tap::Lane& lane(SlotIndex index) const;
    void findLanes();
    void openLane(SlotIndex index);
    void collect();
    void drain(Lane& lane, std::vector<Sent>& all);

    ScopedDescriptor directory;
    ScopedDescriptor file;
    Mapping head;         ///< header and lanes of the tap
    Mapping arenaHeader;  ///< of the domain
    uint32_t id = 0;
    uint32_t ringBytes = 0;
    bool isNamed = false;
    std::vector<bool> isOpen = std::vector<bool>(slotCount);  ///< by slot
    std::vector<Lane> lanes;
    bool isStopped = false;
    std::deque<Sent> taken;  ///< in order
    std::vector<Sent> held;  ///< may have to stand behind what the next look finds
};

Tap::Tap(std::unique_ptr<Ring> ring) : ring_(std::move(ring)) {}

Tap::~Tap() = default;

std::unique_ptr<Tap> Tap::take(const Place& place, uint32_t snaplen) {
    if (place.directory() == -1) {
        errno = ENOTSUP;
        return nullptr;
    }
    auto ring = std::make_unique<Ring>();
    if (ring->make(place, snaplen)) return std::unique_ptr<Tap>(new Tap(std::move(ring)));
    const int failure = errno;
    ring.reset();
    errno = failure;
    return nullptr;
}

bool Tap::Ring::make(const Place& place, uint32_t snapBytes) {
    directory.reset(fcntl(place.directory(), F_DUPFD_CLOEXEC, 0));
    return directory.get() != -1 && fill(snapBytes) && claimName() && announce(place);
}

/// Makes the file, locked, without a name.
bool Tap::Ring::fill(uint32_t snapBytes) {
    struct stat arena;
    if (fstatat(directory.get(), arenaFileName, &arena, AT_SYMLINK_NOFOLLOW) == -1) return false;
    file.reset(openat(directory.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, arena.st_mode & 0777));
    if (file.get() == -1) return false;
    giveToMembers(file.get(), arena);
    if (fchmod(file.get(), arena.st_mode & 0777) == -1 || !tap::own(file.get())) return false;
    ringBytes = ringBytesFor(snapBytes);
    if (ftruncate(file.get(), static_cast<off_t>(tap::fileBytes(ringBytes))) == -1) return false;
    if (!reservePages(file.get(), 0, tap::ringsOffset / pageBytes)) return false;
    head = map(file.get(), 0, tap::ringsOffset);
    if (head == nullptr) return false;
    std::random_device random;
    while (id == 0) id = random();
    auto& header = *static_cast<tap::Header*>(head.get());
    header.magic.storeRelaxed(tap::magic);
    header.id.storeRelaxed(id);
    header.ringBytes.storeRelaxed(ringBytes);
    header.snapBytes.storeRelaxed(std::min(snapBytes, ringBytes / 4));
    return true;
}

bool Tap::Ring::claimName() {
    const std::string self = "/proc/self/fd/" + std::to_string(file.get());
    constexpr int attempts = 8;  // others may try at the same time, and senders remove what the dead have left
    for (int left = attempts; left != 0; --left) {
        isNamed = linkat(AT_FDCWD, self.c_str(), directory.get(), tap::fileName, AT_SYMLINK_FOLLOW) == 0;
        if (isNamed) return true;
        if (errno != EEXIST) return false;
        if (removeLeftover(directory.get())) continue;
        if (errno != EBUSY) return false;
        nanosleep(&pause, nullptr);
    }
    errno = EBUSY;
    return false;
}

/// Tells the senders.
bool Tap::Ring::announce(const Place& place) {
    const ScopedDescriptor arena(openArenaFile(place.directory()));
    if (arena.get() == -1 || checkArenaFile(arena.get()) == 0) return false;
    arenaHeader = map(arena.get(), 0, pageBytes);
    if (arenaHeader == nullptr) return false;
    static_cast<Header*>(arenaHeader.get())->tap.storeSeqCst(id);
    return true;
}

void Tap::Ring::withdraw() const {
    uint32_t own = id;
    if (arenaHeader != nullptr) static_cast<Header*>(arenaHeader.get())->tap.casSeqCst(own, 0);
}

Tap::Ring::~Ring() {
    withdraw();
    if (isNamed) tap::remove(directory.get(), file.get());
}

bool Tap::next(Sent& sent, int milliseconds) {
    const uint64_t end = now() + static_cast<uint64_t>(milliseconds) * nanosecondsPerMillisecond;
    for (;;) {
        if (ring_->taken.empty()) ring_->collect();
        if (!ring_->taken.empty()) {
            sent = std::move(ring_->taken.front());
            ring_->taken.pop_front();
            return true;
        }
        if (now() >= end || nanosleep(&pause, nullptr) == -1) return false;
    }
}

void Tap::stop() {
    ring_->withdraw();
    ring_->isStopped = true;
}

uint64_t Tap::lost() const {
    uint64_t lost = 0;
    for (uint32_t i = 0; i < slotCount; ++i) lost += ring_->lane(SlotIndex{i}).lost.loadRelaxed();
    return lost;
}

const tap::Lane& Tap::Ring::lane(SlotIndex index) const {
    const auto* const all =
        reinterpret_cast<const tap::Lane*>(static_cast<const char*>(head.get()) + tap::lanesOffset);
    return all[numberOf(index)];
}

/// Takes all that is in the rings, and puts it in order. What was sent after the look began waits for the next one: a
/// question may lie in a ring that was looked at already, and its answer in another. It waits once, whatever the
/// clock does.
void Tap::Ring::collect() {
    uint64_t end = isStopped ? std::numeric_limits<uint64_t>::max() : realTime();
    for (const Sent& sent : held) end = std::max(end, sent.nanoseconds);
    std::vector<Sent> all = std::move(held);
    findLanes();
    for (Lane& one : lanes) drain(one, all);
    std::stable_sort(all.begin(), all.end(),
                     [](const Sent& a, const Sent& b) { return a.nanoseconds < b.nanoseconds; });
    const auto later = std::find_if(all.begin(), all.end(), [&](const Sent& sent) { return sent.nanoseconds > end; });
    taken.insert(taken.end(), std::make_move_iterator(all.begin()), std::make_move_iterator(later));
    held.assign(std::make_move_iterator(later), std::make_move_iterator(all.end()));
}

void Tap::Ring::findLanes() {
    for (uint32_t i = 0; i < slotCount; ++i) {
        if (!isOpen[i] && lane(SlotIndex{i}).isOpen.loadAcquire() != 0) openLane(SlotIndex{i});
    }
}

/// A ring that others only claim to have made is not touched: it has no memory.
void Tap::Ring::openLane(SlotIndex index) {
    const uint64_t offset = tap::ringOffset(ringBytes, index);
    const auto pages = (pageBytes + ringBytes) / pageBytes;
    if (!reservePages(file.get(), static_cast<uint32_t>(offset / pageBytes), pages)) return;
    Mapping mapping = map(file.get(), offset, size_t{pageBytes} + ringBytes);
    if (mapping == nullptr) return;
    isOpen[numberOf(index)] = true;
    lanes.push_back({std::move(mapping), 0});
}

void Tap::Ring::drain(Lane& lane, std::vector<Sent>& all) {
    auto& counts = *static_cast<tap::Counts*>(lane.mapping.get());
    const char* const data = static_cast<const char*>(lane.mapping.get()) + pageBytes;
    const uint32_t written = counts.written.loadAcquire();
    while (written != lane.read) {
        tap::Entry entry;
        const uint32_t waiting = written - lane.read;
        if (waiting >= sizeof entry) readFrom(data, ringBytes, lane.read, &entry, sizeof entry);
        const bool isWhole = waiting >= sizeof entry && waiting <= ringBytes && entry.dataBytes <= ringBytes &&
                             tap::entryBytes(entry.dataBytes) <= waiting;
        if (!isWhole) {
            lane.read = written;  // garbage: what follows it cannot be found
            break;
        }
        Sent sent{entry.nanoseconds, entry.from, entry.to, entry.number, entry.size, {}};
        sent.data.resize(entry.dataBytes);
        readFrom(data, ringBytes, lane.read + uint32_t{sizeof entry}, sent.data.data(), entry.dataBytes);
        all.push_back(std::move(sent));
        lane.read += tap::entryBytes(entry.dataBytes);
    }
    counts.read.storeRelease(lane.read);  // what was read may be overwritten
}

}  // namespace inspect
}  // namespace linx
