#include "host/system/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "host/system/forks.h"

namespace linx {

namespace {

pthread_mutex_t allMutex = PTHREAD_MUTEX_INITIALIZER;

/// All locks of the process, for the fork handlers.
std::vector<FileLock*>& all() {
    static auto* locks = new std::vector<FileLock*>;  // never destroyed: locks may outlive the statics
    return *locks;
}

class ScopedMutex {
public:
    explicit ScopedMutex(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~ScopedMutex() { pthread_mutex_unlock(&mutex_); }
    ScopedMutex(const ScopedMutex&) = delete;
    ScopedMutex& operator=(const ScopedMutex&) = delete;

private:
    pthread_mutex_t& mutex_;
};

}  // namespace

FileLock::FileLock(ScopedDescriptor& file, const Identity& identity, int directory, const char* name)
    : identity_(identity), directory_(directory), name_(name), generation_(forks::generation()) {
    const ScopedMutex lock(allMutex);
    all().push_back(this);
    file_.reset(file.release());
}

FileLock::~FileLock() {
    const ScopedMutex lock(allMutex);
    all().erase(std::find(all().begin(), all().end(), this));
}

void FileLock::beforeFork() {
    pthread_mutex_lock(&allMutex);
    for (FileLock* lock : all()) pthread_mutex_lock(&lock->inside_);
}

void FileLock::afterForkInParent() {
    for (FileLock* lock : all()) pthread_mutex_unlock(&lock->inside_);
    pthread_mutex_unlock(&allMutex);
}

void FileLock::afterForkInChild() {
    const int keptErrno = errno;
    for (FileLock* lock : all()) {
        pthread_mutex_init(&lock->queue_, nullptr);  // a thread that stayed behind may have had it
        lock->openAnew();
    }
    errno = keptErrno;
    afterForkInParent();
}

bool FileLock::lock(Patience patience) {
    if (patience == Patience::wait) {
        pthread_mutex_lock(&queue_);
    } else if (pthread_mutex_trylock(&queue_) != 0) {
        errno = EWOULDBLOCK;
        return false;
    }
    if (lockFile(patience)) {
        pthread_mutex_lock(&inside_);
        return true;
    }
    pthread_mutex_unlock(&queue_);
    return false;
}

bool FileLock::lockFile(Patience patience) {
    if (generation_ != forks::generation() && !openAnew()) return false;
    while (flock(file_.get(), patience == Patience::wait ? LOCK_EX : LOCK_EX | LOCK_NB) == -1) {
        if (errno != EINTR) return false;
    }
    if (isStillThere()) return true;
    const int failure = errno;
    flock(file_.get(), LOCK_UN);
    errno = failure;
    return false;
}

/// False with errno: ESTALE when the file has been removed, EBADF when somebody has closed the descriptor, which may be
/// another's by now.
bool FileLock::isStillThere() const {
    struct stat status;
    if (fstat(file_.get(), &status) == -1) return false;
    if (identity_.isOf(status) && status.st_nlink != 0) return true;
    errno = identity_.isOf(status) ? ESTALE : EBADF;
    return false;
}

void FileLock::unlock() {
    const int keptErrno = errno;
    // By hand: where a child or a program being started still has a copy of the descriptor, closing would not do.
    flock(file_.get(), LOCK_UN);
    pthread_mutex_unlock(&inside_);
    pthread_mutex_unlock(&queue_);
    errno = keptErrno;
}

/// Exchanges the open file, which the parent locks too, for one of this process. Its number stays. False with errno;
/// the old one then stays for everything but locking.
bool FileLock::openAnew() {
    ScopedDescriptor fresh(openat(directory_, name_, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status;
    if (fresh.get() == -1 && errno != ENOENT) return false;
    if (fresh.get() == -1 || fstat(fresh.get(), &status) == -1 || !identity_.isOf(status)) {
        errno = ESTALE;  // the directory holds no such file any more, or another one
        return false;
    }
    if (dup3(fresh.get(), file_.get(), O_CLOEXEC) == -1) return false;
    generation_ = forks::generation();
    return true;
}

}  // namespace linx
