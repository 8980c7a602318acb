#include "host/record/tap_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "host/system/uninterrupted.h"

namespace linx {
namespace tap {

int open(int directory) {
    return uninterrupted([&] { return openat(directory, fileName, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); });
}

bool hasOwner(int file) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(file, F_OFD_GETLK, &lock) == -1 || lock.l_type != F_UNLCK;
}

void giveBackRings(int file) {
    struct stat status;
    if (fstat(file, &status) == -1 || status.st_size <= off_t{ringsOffset}) return;
    fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, ringsOffset, status.st_size - off_t{ringsOffset});
}

}  // namespace tap
}  // namespace linx
