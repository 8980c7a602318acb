#include "tests/support/few_slots.h"

#include <fcntl.h>

#include <cerrno>

#include "host/arena/layout.h"

namespace {

constexpr uint64_t everything = ~uint64_t{0};
uint64_t slotsEnd = everything;  ///< in the arena's file; between here and the hunts there is no memory

}  // namespace

/// Stands in for what the C library asks the kernel.
extern "C" int posix_fallocate64(int file, off64_t offset, off64_t length) {
    const bool isBeyond = static_cast<uint64_t>(offset + length) > slotsEnd && offset < linx::huntsOffset;
    if (isBeyond) return ENOSPC;
    const int keptErrno = errno;
    const int failure = fallocate64(file, 0, offset, length) == 0 ? 0 : errno;
    errno = keptErrno;
    return failure;
}

namespace linxtest {

FewSlots::FewSlots(uint32_t count) : before_(slotsEnd) {
    const uint64_t bytes = (uint64_t{count} + 1) * sizeof(linx::Slot);  // slot 0 is none
    slotsEnd = linx::slotsOffset + (bytes + linx::unitBytes - 1) / linx::unitBytes * linx::unitBytes;
}

FewSlots::~FewSlots() {
    slotsEnd = before_;
}

}  // namespace linxtest
