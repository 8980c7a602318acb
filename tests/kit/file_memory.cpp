#include "tests/kit/file_memory.h"

#include <fcntl.h>

#include <cerrno>
#include <limits>

#include "host/arena/layout.h"

namespace linxtest {

std::function<int(int64_t offset, int64_t bytes)> atReserve;

namespace {

int64_t slotsEnd = std::numeric_limits<int64_t>::max();  ///< in the arena's file; from here to the hunts is no memory

}  // namespace

FewSlots::FewSlots(uint32_t count) : before_(slotsEnd) {
    const uint64_t bytes = (uint64_t{count} + 1) * sizeof(linx::Slot);  // slot 0 is none
    const uint64_t pages = (bytes + linx::pageBytes - 1) / linx::pageBytes;
    slotsEnd = static_cast<int64_t>(linx::slotsOffset + pages * linx::pageBytes);
}

FewSlots::~FewSlots() {
    slotsEnd = before_;
}

}  // namespace linxtest

/// Of the sources of host/, which count in 64 bits.
extern "C" int posix_fallocate64(int file, off64_t offset, off64_t bytes) {
    const int error = linxtest::atReserve ? linxtest::atReserve(offset, bytes) : 0;
    if (error != 0) return error;
    if (offset + bytes > linxtest::slotsEnd && offset < linx::huntsOffset) return ENOSPC;
    const int keptErrno = errno;
    const int failure = fallocate64(file, 0, offset, bytes) == 0 ? 0 : errno;
    errno = keptErrno;
    return failure;
}
