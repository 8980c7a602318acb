#include "host/record/tap_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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

bool own(int file) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool remove(int directory, int file) {
    struct stat named;
    struct stat its;
    if (fstat(file, &its) == -1) return false;
    if (fstatat(directory, fileName, &named, AT_SYMLINK_NOFOLLOW) == -1) return errno == ENOENT;
    if (named.st_dev != its.st_dev || named.st_ino != its.st_ino) return true;
    return unlinkat(directory, fileName, 0) == 0 || errno == ENOENT;
}

}  // namespace tap
}  // namespace linx
