#include "host/arena/domain_path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "host/arena/admission.h"
#include "host/system/scoped_descriptor.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace {

std::string defaultPath() {
    return "/dev/shm/linx." + std::to_string(geteuid());
}

/// Whether the path is a default of ours, which lie where any user could plant a directory.
bool isOursToChoose(const std::string& path) {
    const std::string own = defaultPath();
    return path == own || path.compare(0, own.size() + 1, own + ".") == 0;
}

/// Whether the directory can be trusted, and is ours where it has to be.
bool isSafe(const struct stat& status, const std::string& path) {
    return keepsItsFiles(status) && (!isOursToChoose(path) || status.st_uid == geteuid());
}

}  // namespace

std::string domainPath() {
    const char* chosen = std::getenv("LINX_DOMAIN");
    if (chosen == nullptr || *chosen == '\0') return defaultPath();
    const std::string word = chosen;
    if (word.front() == '/') return word;
    if (word.find('/') != std::string::npos) return std::string();
    return defaultPath() + "." + word;
}

int openDomainDirectory(const std::string& path) {
    if (mkdir(path.c_str(), 0700) == -1 && errno != EEXIST) return -1;
    ScopedDescriptor directory(
        uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    if (directory.get() == -1) return -1;
    struct stat status;
    if (fstat(directory.get(), &status) == -1) return -1;
    if (isSafe(status, path)) return directory.release();
    errno = EACCES;
    return -1;
}

}  // namespace linx
