#include "tests/kit/file_memory.h"

#include <fcntl.h>

#include <cerrno>
#include <limits>

#include "host/arena/layout.h"

namespace linxtest {

std::function<int(int64_t offset, int64_t bytes)> atReserve;

namespace {

/// In the arena's file: from here to the end of the events is no memory, and so for no slot that has them.
int64_t eventsEnd = std::numeric_limits<int64_t>::max();

}  // namespace

FewSlots::FewSlots(uint32_t count) : before_(eventsEnd) {
    const uint64_t bytes = (uint64_t{count} + 1) * sizeof(linx::EventRing);  // slot 0 is none
    const uint64_t pages = (bytes + linx::pageBytes - 1) / linx::pageBytes;
    eventsEnd = static_cast<int64_t>(linx::eventsOffset + pages * linx::pageBytes);
}

FewSlots::~FewSlots() {
    eventsEnd = before_;
}

}  // namespace linxtest

/// Of the sources of host/, which count in 64 bits.
extern "C" int posix_fallocate64(int file, off64_t offset, off64_t bytes) {
    const int error = linxtest::atReserve ? linxtest::atReserve(offset, bytes) : 0;
    if (error != 0) return error;
    const bool isOfEvents = offset >= linx::eventsOffset && offset < linx::pageMapOffset;
    if (isOfEvents && offset + bytes > linxtest::eventsEnd) return ENOSPC;
    const int keptErrno = errno;
    const int failure = fallocate64(file, 0, offset, bytes) == 0 ? 0 : errno;
    errno = keptErrno;
    return failure;
}
