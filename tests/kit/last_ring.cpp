#include "tests/kit/last_ring.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace {

bool armed = false;

/// A ring is a word of zeros, and goes into a pipe.
bool isRing(int descriptor, const void* data, size_t size) {
    uint32_t record = 0;
    if (size != sizeof record) return false;
    std::memcpy(&record, data, sizeof record);
    struct stat status;
    return record == 0 && fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

void dieAtNextRing() {
    armed = true;
}

/// Stands in for the C library's in the whole program, so also for what the platform calls.
extern "C" [[gnu::visibility("default")]] ssize_t write(int descriptor, const void* data, size_t size) {
    if (armed && isRing(descriptor, data, size)) kill(getpid(), SIGKILL);
    return syscall(SYS_write, descriptor, data, size);
}
