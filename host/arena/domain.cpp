#include "host/arena/domain.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <vector>

#include "host/arena/admission.h"
#include "host/arena/arena_file.h"
#include "host/arena/domain_path.h"
#include "host/system/forks.h"
#include "host/system/log.h"
#include "host/system/scoped_descriptor.h"

namespace linx {
namespace {

using Joined = std::vector<std::weak_ptr<Domain>>;

/// The domains that this process has joined.
Joined& joined() {
    static Joined* all = new Joined;  // never destroyed: endpoints may outlive the statics
    return *all;
}

// A child copies this process's mutexes as they are: hold them during the fork.
void beforeFork() {
    forks::domainsMutex().lock();
    FileLock::beforeFork();
}
void afterForkInParent() {
    FileLock::afterForkInParent();
    forks::domainsMutex().unlock();
}
void afterForkInChild() {
    FileLock::afterForkInChild();
    forks::domainsMutex().unlock();
}

const int registered = forks::atFork(beforeFork, afterForkInParent, afterForkInChild);

/// The domain of this arena, if the process has joined it. Compared by file, not by path: a domain removed and made
/// again is another one. One whose descriptors the program has closed is left to its endpoints. The numbers of
/// `fresh` were free until just now.
std::shared_ptr<Domain> findJoined(Joined& all, const struct stat& status, const std::array<int, 2>& fresh) {
    const auto isFresh = [&](int descriptor) {
        return std::find(fresh.begin(), fresh.end(), descriptor) != fresh.end();
    };
    std::shared_ptr<Domain> found;
    const auto isGone = [&](const std::weak_ptr<Domain>& one) {
        const std::shared_ptr<Domain> domain = one.lock();
        if (domain == nullptr) return true;
        if (!domain->lock().identity().isOf(status)) return false;
        const bool wereClosed = isFresh(domain->directory()) || isFresh(domain->lock().file());
        if (wereClosed || !domain->lock().hasItsFiles()) {
            // For good: a reused descriptor number must not give two locks one open file.
            domain->lock().giveUp();
            return true;
        }
        found = domain;
        return false;
    };
    all.erase(std::remove_if(all.begin(), all.end(), isGone), all.end());
    return found;
}

}  // namespace

/// The directory, and the arena's file in it, of a domain that may be joined.
struct Domain::Place {
    ScopedDescriptor directory;
    ScopedDescriptor file;
    unsigned fileMode = 0;
    struct stat directoryStatus = {};
    struct stat status = {};
    bool isMade = false;  ///< just now
};

std::shared_ptr<Domain> Domain::join() {
    const std::string path = domainPath();
    if (path.empty()) {
        errno = EINVAL;
        return nullptr;
    }
    Place place;
    if (!openPlace(path, place)) return nullptr;
    std::shared_ptr<Domain> domain;
    {
        const std::lock_guard<ProcessMutex> lock(forks::domainsMutex());
        Joined& all = joined();
        domain = findJoined(all, place.status, {place.directory.get(), place.file.get()});
        if (domain != nullptr) return domain;
        domain = mapPlace(place);
        if (domain == nullptr) return nullptr;
        all.push_back(domain);
    }
    log(LogBit::notable, [&] {
        return (place.isMade ? "made the domain " : "joined the domain ") + path + " as user " +
               std::to_string(geteuid());
    });
    return domain;
}

/// Opens the domain at the path, making it when it is not there. False with errno.
bool Domain::openPlace(const std::string& path, Place& place) {
    place.directory.reset(openDomainDirectory(path));
    if (place.directory.get() == -1 || fstat(place.directory.get(), &place.directoryStatus) == -1) return false;
    place.fileMode = place.directoryStatus.st_mode & 0660u;
    place.file.reset(openOrMakeArenaFile(place.directory.get(), place.fileMode, place.isMade));
    if (place.file.get() == -1 || fstat(place.file.get(), &place.status) == -1) return false;
    if (isForMembers(place.status, place.directoryStatus, geteuid())) return true;
    errno = EACCES;
    return false;
}

/// Maps the arena, which this process has not joined yet. Null with errno.
std::shared_ptr<Domain> Domain::mapPlace(Place& place) {
    const uint32_t pageCount = checkArenaFile(place.file.get());
    if (pageCount == 0) return nullptr;
    ArenaMapping mapping = mapArenaFile(place.file.get(), pageCount);
    if (mapping == nullptr) return nullptr;
    // The lock's open file must not be the mapped one. Close before opening, to need no extra descriptor.
    place.file.reset();
    place.file.reset(FileLock::open(FileLock::Identity(place.status), place.directory.get(), arenaFileName));
    if (place.file.get() == -1) return nullptr;
    return std::shared_ptr<Domain>(new Domain(place, std::move(mapping), pageCount));
}

Domain::Domain(Place& place, ArenaMapping mapping, uint32_t pageCount)
    : directory_(place.directory.release()),
      fileMode_(place.fileMode),
      lock_(place.file, FileLock::Identity(place.status),
            {directory_.get(), FileLock::Identity(place.directoryStatus)}, arenaFileName),
      mapping_(std::move(mapping)),
      arena_(mapping_.get(), pageCount, lock_.file()) {}

Domain::~Domain() {
    if (lock_.isLost()) directory_.release();  // it is another's to close
}

}  // namespace linx
