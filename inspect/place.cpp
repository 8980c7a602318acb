#include "inspect/place.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "host/arena/arena_file.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace inspect {
namespace {

/// Checked by name first, since opening some files has side effects.
int openRegular(int directory, const char* name, int links) {
    struct stat status;
    if (fstatat(directory, name, &status, links == O_NOFOLLOW ? AT_SYMLINK_NOFOLLOW : 0) == -1) return -1;
    if (!S_ISREG(status.st_mode)) {
        errno = EPROTO;
        return -1;
    }
    return uninterrupted([&] { return openat(directory, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | links); });
}

}  // namespace

bool Place::openDirectory(const std::string& path) {
    path_ = path;
    directory_.reset(uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (directory_.get() == -1) return false;
    file_.reset(openRegular(directory_.get(), arenaFileName, O_NOFOLLOW));
    return file_.get() != -1;
}

bool Place::openFile(const std::string& path) {
    path_ = path;
    file_.reset(openRegular(AT_FDCWD, path.c_str(), 0));
    return file_.get() != -1;
}

}  // namespace inspect
}  // namespace linx
