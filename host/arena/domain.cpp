#include "host/arena/domain.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <vector>

#include "host/arena/arena_file.h"
#include "host/arena/domain_path.h"
#include "host/arena/scoped_descriptor.h"

namespace linx {
namespace {

/// The domains that this process has joined.
struct Joined {
    std::mutex mutex;
    std::vector<std::weak_ptr<Domain>> domains;
};

Joined& joined() {
    static Joined* all = new Joined;  // never destroyed: endpoints may outlive the statics
    return *all;
}

/// Whether the file is for the domain's members alone: others may neither write to it nor have put it there.
bool isSafe(const struct stat& file, const struct stat& directory) {
    if ((file.st_mode & S_IWOTH) != 0) return false;
    const bool anybodyAdds = (directory.st_mode & S_IWOTH) != 0;
    return !anybodyAdds || file.st_uid == geteuid() || file.st_uid == directory.st_uid;
}

}  // namespace

std::shared_ptr<Domain> Domain::join() {
    const std::string path = domainPath();
    if (path.empty()) {
        errno = EINVAL;
        return nullptr;
    }
    ScopedDescriptor directory(openDomainDirectory(path));
    struct stat directoryStatus;
    if (directory.get() == -1 || fstat(directory.get(), &directoryStatus) == -1) return nullptr;
    const unsigned mode = directoryStatus.st_mode & 0660u;
    const ScopedDescriptor file(openOrMakeArenaFile(directory.get(), mode));
    struct stat status;
    if (file.get() == -1 || fstat(file.get(), &status) == -1) return nullptr;
    if (!isSafe(status, directoryStatus)) {
        errno = EACCES;
        return nullptr;
    }

    Joined& all = joined();
    const std::lock_guard<std::mutex> lock(all.mutex);
    for (size_t i = 0; i < all.domains.size();) {
        const std::shared_ptr<Domain> domain = all.domains[i].lock();
        if (domain == nullptr) {
            all.domains.erase(all.domains.begin() + static_cast<std::ptrdiff_t>(i));
            continue;
        }
        // By the file and not by the path: a domain that was removed and made again is another one.
        if (domain->device_ == status.st_dev && domain->inode_ == status.st_ino) return domain;
        ++i;
    }
    const uint32_t unitCount = checkArenaFile(file.get());
    if (unitCount == 0) return nullptr;
    void* base = mapArenaFile(file.get(), unitCount);
    if (base == nullptr) return nullptr;
    const Arena arena(base, unitCount);
    const size_t size = size_t{arena.fileUnits()} * unitBytes;
    auto* made = new (std::nothrow) Domain(directory, mode, arena, base, size, status.st_dev, status.st_ino);
    if (made == nullptr) {
        munmap(base, size);
        errno = ENOMEM;
        return nullptr;
    }
    std::shared_ptr<Domain> domain(made);
    all.domains.push_back(domain);
    return domain;
}

Domain::Domain(ScopedDescriptor& directory, unsigned fileMode, const Arena& arena, void* base, size_t size,
               uint64_t device, uint64_t inode)
    : directory_(directory.release()),
      fileMode_(fileMode),
      arena_(arena),
      base_(base),
      size_(size),
      device_(device),
      inode_(inode) {}

Domain::~Domain() {
    munmap(base_, size_);
}

int Domain::openArenaFile() const {
    ScopedDescriptor file(linx::openArenaFile(directory_.get()));
    struct stat status;
    if (file.get() != -1 && fstat(file.get(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_) {
        return file.release();
    }
    if (file.get() == -1 && errno != ENOENT) return -1;
    errno = ESTALE;
    return -1;
}

}  // namespace linx
