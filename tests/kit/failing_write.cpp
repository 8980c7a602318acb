#include "tests/kit/failing_write.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool isPipe(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

/// Stands in for the C library's.
extern "C" [[gnu::visibility("default")]] ssize_t write(int descriptor, const void* data, size_t size) {
    if (linxtest::writesThatFail == 0 || !isPipe(descriptor)) return syscall(SYS_write, descriptor, data, size);
    --linxtest::writesThatFail;
    errno = linxtest::failureOfWrites;
    return -1;
}
