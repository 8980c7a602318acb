#include "inspect/tap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>

#include "host/arena/arena_file.h"
#include "host/system/clock.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace inspect {
namespace {

constexpr std::chrono::milliseconds pause{2};  ///< between two looks at the rings

uint32_t ringBytesFor(uint32_t snapBytes) {
    uint32_t bytes = tap::leastRingBytes;
    while (bytes < tap::mostRingBytes && bytes / 4 < tap::entryBytes(snapBytes)) bytes *= 2;
    return bytes;
}

bool lock(int file) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool isSameFile(int file, int directory, const char* name) {
    struct stat there;
    struct stat here;
    return fstat(file, &here) == 0 && fstatat(directory, name, &there, AT_SYMLINK_NOFOLLOW) == 0 &&
           here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

/// Removes the tap that a dead process has left. False with errno: EBUSY when it lives.
bool removeLeftover(int directory) {
    const ScopedDescriptor file(tap::open(directory));
    if (file.get() == -1) return errno == ENOENT;
    if (!lock(file.get())) {
        errno = EBUSY;
        return false;
    }
    // With the lock nobody else removes this file; but one that had it before may have.
    if (!isSameFile(file.get(), directory, tap::fileName)) return true;
    return unlinkat(directory, tap::fileName, 0) == 0 || errno == ENOENT;
}

/// Copies bytes out of a ring, round its end.
void readFrom(const char* data, uint32_t ringBytes, uint32_t at, void* to, uint32_t count) {
    const uint32_t start = at & (ringBytes - 1);
    const uint32_t first = std::min(count, ringBytes - start);
    std::memcpy(to, data + start, first);
    std::memcpy(static_cast<char*>(to) + first, data, count - first);
}

}  // namespace

void Tap::Unmap::operator()(void* base) const {
    munmap(base, bytes);
}

Tap::Mapping Tap::map(int file, uint64_t offset, size_t bytes) {
    void* base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, static_cast<off_t>(offset));
    return Mapping(base == MAP_FAILED ? nullptr : base, {bytes});
}

std::unique_ptr<Tap> Tap::take(const Place& place, uint32_t snapBytes) {
    std::unique_ptr<Tap> tap(new Tap);
    if (place.directory() == -1) {
        errno = EINVAL;
        return nullptr;
    }
    if (tap->make(place, snapBytes)) return tap;
    const int failure = errno;
    tap.reset();
    errno = failure;
    return nullptr;
}

bool Tap::make(const Place& place, uint32_t snapBytes) {
    directory_.reset(fcntl(place.directory(), F_DUPFD_CLOEXEC, 0));
    isOpen_.resize(slotCount);
    return directory_.get() != -1 && fill(directory_.get(), snapBytes) && claimName(directory_.get()) &&
           announce(place);
}

/// Makes the file, locked, without a name.
bool Tap::fill(int directory, uint32_t snapBytes) {
    struct stat arena;
    if (fstatat(directory, arenaFileName, &arena, AT_SYMLINK_NOFOLLOW) == -1) return false;
    file_.reset(openat(directory, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, arena.st_mode & 0777));
    if (file_.get() == -1 || fchmod(file_.get(), arena.st_mode & 0777) == -1 || !lock(file_.get())) return false;
    ringBytes_ = ringBytesFor(snapBytes);
    if (ftruncate(file_.get(), static_cast<off_t>(tap::fileBytes(ringBytes_))) == -1) return false;
    if (!reservePages(file_.get(), 0, tap::ringsOffset / pageBytes)) return false;
    lanes_ = map(file_.get(), 0, tap::ringsOffset);
    if (lanes_ == nullptr) return false;
    std::random_device random;
    while (id_ == 0) id_ = random();
    auto& header = *static_cast<tap::Header*>(lanes_.get());
    header.magic.storeRelaxed(tap::magic);
    header.id.storeRelaxed(id_);
    header.ringBytes.storeRelaxed(ringBytes_);
    header.snapBytes.storeRelaxed(std::min(snapBytes, ringBytes_ / 4));
    return true;
}

bool Tap::claimName(int directory) {
    const std::string self = "/proc/self/fd/" + std::to_string(file_.get());
    constexpr int attempts = 8;  // others may try at the same time
    for (int left = attempts; left != 0; --left) {
        isNamed_ = linkat(AT_FDCWD, self.c_str(), directory, tap::fileName, AT_SYMLINK_FOLLOW) == 0;
        if (isNamed_) return true;
        if (errno != EEXIST || !removeLeftover(directory)) return false;
    }
    errno = EBUSY;
    return false;
}

/// Tells the senders.
bool Tap::announce(const Place& place) {
    const ScopedDescriptor arena(openArenaFile(place.directory()));
    if (arena.get() == -1 || checkArenaFile(arena.get()) == 0) return false;
    arenaHeader_ = map(arena.get(), 0, pageBytes);
    if (arenaHeader_ == nullptr) return false;
    static_cast<Header*>(arenaHeader_.get())->tap.storeSeqCst(id_);
    return true;
}

Tap::~Tap() {
    uint32_t id = id_;
    if (arenaHeader_ != nullptr) static_cast<Header*>(arenaHeader_.get())->tap.casSeqCst(id, 0);
    if (isNamed_ && isSameFile(file_.get(), directory_.get(), tap::fileName))
        unlinkat(directory_.get(), tap::fileName, 0);
    // Senders have it mapped until they send again: what lies in it is of no use to them.
    if (lanes_ != nullptr) {
        fallocate(file_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, tap::ringsOffset,
                  static_cast<off_t>(tap::fileBytes(ringBytes_) - tap::ringsOffset));
    }
}

bool Tap::next(Sent& sent, int milliseconds) {
    const uint64_t end = now() + static_cast<uint64_t>(milliseconds) * nanosecondsPerMillisecond;
    for (;;) {
        if (taken_.empty()) collect();
        if (!taken_.empty()) {
            sent = std::move(taken_.front());
            taken_.pop_front();
            return true;
        }
        if (now() >= end) return false;
        std::this_thread::sleep_for(pause);
    }
}

uint64_t Tap::lost() const {
    uint64_t lost = 0;
    for (uint32_t i = 0; i < slotCount; ++i) lost += lane(SlotIndex{i}).lost.loadRelaxed();
    return lost;
}

const tap::Lane& Tap::lane(SlotIndex index) const {
    const auto* const lanes =
        reinterpret_cast<const tap::Lane*>(static_cast<const char*>(lanes_.get()) + tap::lanesOffset);
    return lanes[numberOf(index)];
}

/// Takes all that is in the rings, and puts it in order.
void Tap::collect() {
    findRings();
    for (Ring& ring : rings_) drain(ring);
    std::stable_sort(taken_.begin(), taken_.end(),
                     [](const Sent& a, const Sent& b) { return a.nanoseconds < b.nanoseconds; });
}

void Tap::findRings() {
    for (uint32_t i = 0; i < slotCount; ++i) {
        if (!isOpen_[i] && lane(SlotIndex{i}).isOpen.loadAcquire() != 0) openRing(SlotIndex{i});
    }
}

/// A ring that others only claim to have made is not touched: it has no memory.
void Tap::openRing(SlotIndex index) {
    const uint64_t offset = tap::ringOffset(ringBytes_, index);
    const auto pages = (pageBytes + ringBytes_) / pageBytes;
    if (!reservePages(file_.get(), static_cast<uint32_t>(offset / pageBytes), pages)) return;
    Mapping mapping = map(file_.get(), offset, size_t{pageBytes} + ringBytes_);
    if (mapping == nullptr) return;
    isOpen_[numberOf(index)] = true;
    rings_.push_back({index, std::move(mapping), 0});
}

void Tap::drain(Ring& ring) {
    auto& counts = *static_cast<tap::Counts*>(ring.mapping.get());
    const char* const data = static_cast<const char*>(ring.mapping.get()) + pageBytes;
    const uint32_t written = counts.written.loadAcquire();
    while (written != ring.read) {
        tap::Entry entry;
        const uint32_t waiting = written - ring.read;
        if (waiting >= sizeof entry) readFrom(data, ringBytes_, ring.read, &entry, sizeof entry);
        const bool isWhole = waiting >= sizeof entry && waiting <= ringBytes_ && entry.dataBytes <= ringBytes_ &&
                             tap::entryBytes(entry.dataBytes) <= waiting;
        if (!isWhole) {
            ring.read = written;  // garbage: what follows it cannot be found
            break;
        }
        Sent sent{entry.nanoseconds, entry.from, entry.to, entry.number, entry.size, {}};
        sent.data.resize(entry.dataBytes);
        readFrom(data, ringBytes_, ring.read + uint32_t{sizeof entry}, sent.data.data(), entry.dataBytes);
        taken_.push_back(std::move(sent));
        ring.read += tap::entryBytes(entry.dataBytes);
    }
    counts.read.storeRelease(ring.read);  // what was read may be overwritten
}

}  // namespace inspect
}  // namespace linx
