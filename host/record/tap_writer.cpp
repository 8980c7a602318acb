#include "host/record/tap_writer.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/arena/arena_file.h"
#include "host/system/clock.h"

namespace linx {
namespace {

class KeptErrno {
public:
    ~KeptErrno() { errno = before_; }

private:
    const int before_ = errno;
};

void* map(int file, uint64_t offset, size_t bytes) {
    void* base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, static_cast<off_t>(offset));
    return base == MAP_FAILED ? nullptr : base;
}

}  // namespace

void TapWriter::Unmap::operator()(void* base) const {
    munmap(base, bytes);
}

void TapWriter::copy(const BlockRef& block, Spid to) {
    const KeptErrno keptErrno;
    copied_ = 0;
    const uint32_t id = wanted_.loadRelaxed();
    if (id == 0 || (id != id_ && !open(id)) || lanes_ == nullptr || isOrphaned()) return;
    if (ring_ == nullptr) return lose();
    auto& counts = *static_cast<tap::Counts*>(ring_.get());
    const uint32_t written = counts.written.loadRelaxed();
    const uint32_t waiting = written - counts.read.loadAcquire();  // what has been read may be overwritten
    const uint32_t size = block->size.loadRelaxed();
    const uint32_t payload = std::min(size, payloadRoom[block.sizeClass] + uint32_t{sizeof(LinxSignal)});
    const uint32_t data = std::min(payload - std::min(payload, uint32_t{sizeof(LinxSignal)}), snapBytes_);
    if (waiting > ringBytes_ || ringBytes_ - waiting < tap::entryBytes(data)) return lose();
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    const tap::Entry entry = {toNanoseconds(time), own_, to, block->signal.number, size, data, 0};
    write(written, &entry, sizeof entry);
    write(written + uint32_t{sizeof entry}, &block->signal + 1, data);
    copied_ = tap::entryBytes(data);
}

void TapWriter::show() {
    if (copied_ == 0) return;
    Word& written = static_cast<tap::Counts*>(ring_.get())->written;
    written.storeRelease(written.loadRelaxed() + copied_);  // the entry is seen with it
    copied_ = 0;
}

/// Puts bytes into the ring, round its end.
void TapWriter::write(uint32_t at, const void* bytes, uint32_t count) const {
    char* const data = static_cast<char*>(ring_.get()) + pageBytes;
    const uint32_t start = at & (ringBytes_ - 1);
    const uint32_t first = std::min(count, ringBytes_ - start);
    std::memcpy(data + start, bytes, first);
    std::memcpy(data, static_cast<const char*>(bytes) + first, count - first);
}

/// Opens the tap of this number, once. False when there is none: then nobody captures, or who did has died.
bool TapWriter::open(uint32_t id) {
    close();
    const ScopedDescriptor file(tap::open(domain_.directory()));
    if (file.get() == -1) {
        if (errno == ENOENT) wanted_.casSeqCst(id, 0);
        return false;
    }
    if (!tap::hasOwner(file.get())) {
        abandon(file.get(), id);
        return false;
    }
    id_ = id;
    struct stat status;
    void* base = fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size >= tap::ringsOffset
                     ? map(file.get(), 0, tap::ringsOffset)
                     : nullptr;
    if (base == nullptr) return false;
    lanes_ = Mapping(base, {tap::ringsOffset});
    const auto& header = *static_cast<const tap::Header*>(base);
    const uint32_t ringBytes = header.ringBytes.loadRelaxed();
    const bool isWhole = header.magic.loadRelaxed() == tap::magic && header.id.loadRelaxed() == id &&
                         tap::isRingSize(ringBytes) &&
                         static_cast<uint64_t>(status.st_size) == tap::fileBytes(ringBytes);
    if (!isWhole) {
        lanes_ = nullptr;
        return false;
    }
    ringBytes_ = ringBytes;
    snapBytes_ = std::min(header.snapBytes.loadRelaxed(), ringBytes / 4);
    openRing(file.get(), indexOf(own_));
    return true;
}

void TapWriter::openRing(int file, SlotIndex index) {
    const uint64_t offset = tap::ringOffset(ringBytes_, index);
    const size_t bytes = size_t{pageBytes} + ringBytes_;
    const auto firstPage = static_cast<uint32_t>(offset / pageBytes);
    if (!reservePages(file, firstPage, static_cast<uint32_t>(bytes / pageBytes))) return;
    ring_ = Mapping(map(file, offset, bytes), {bytes});
    if (ring_ == nullptr) return;
    auto* const lanes = reinterpret_cast<tap::Lane*>(static_cast<char*>(lanes_.get()) + tap::lanesOffset);
    lanes[numberOf(index)].isOpen.storeRelease(1);
}

void TapWriter::close() {
    ring_ = nullptr;
    lanes_ = nullptr;
    id_ = 0;
    copied_ = 0;
}

/// Counts a signal that is not captured.
void TapWriter::lose() const {
    auto* const lanes = reinterpret_cast<tap::Lane*>(static_cast<char*>(lanes_.get()) + tap::lanesOffset);
    lanes[numberOf(indexOf(own_))].lost.addRelaxed(1);
}

/// Whether nobody reads any more, which is asked at most once per kernel tick. If so, ends the capture.
bool TapWriter::isOrphaned() {
    const uint64_t now = coarseMilliseconds();
    if (askedAt_ == now) return false;
    askedAt_ = now;
    const ScopedDescriptor file(tap::open(domain_.directory()));
    if (file.get() == -1 ? errno != ENOENT : tap::hasOwner(file.get())) return false;
    abandon(file.get(), id_);
    close();
    return true;
}

/// Ends the capture of a process that has died: nobody is to copy in vain, and its file has no use any more.
void TapWriter::abandon(int file, uint32_t id) const {
    wanted_.casSeqCst(id, 0);
    // Nobody else removes it meanwhile, so that the name is not that of a capture which has just begun.
    if (file != -1 && tap::own(file)) tap::remove(domain_.directory(), file);
}

}  // namespace linx
