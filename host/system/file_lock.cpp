#include "host/system/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <vector>

#include "host/system/forks.h"
#include "host/system/uninterrupted.h"

namespace linx {

namespace {

constexpr ProcessMutex& allMutex = forks::fileLocksMutex();

/// All locks of the process, for the fork handlers.
std::vector<FileLock*>& all() {
    static auto* locks = new std::vector<FileLock*>;  // never destroyed: locks may outlive the statics
    return *locks;
}

}  // namespace

int FileLock::open(const Identity& identity, int directory, const char* name) {
    ScopedDescriptor file(
        uninterrupted([&] { return openat(directory, name, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
    struct stat status;
    if (file.get() == -1 && errno != ENOENT) return -1;
    if (file.get() != -1 && fstat(file.get(), &status) == -1) return -1;
    if (file.get() != -1 && identity.isOf(status)) return file.release();
    errno = ESTALE;  // the directory holds no such file any more, or another one
    return -1;
}

FileLock::FileLock(ScopedDescriptor& file, const Identity& identity, const Directory& directory, const char* name)
    : identity_(identity),
      directory_(directory),
      name_(name),
      generation_(forks::generation()),
      mutexesOf_(generation_) {
    const std::lock_guard<ProcessMutex> lock(allMutex);
    all().push_back(this);
    file_.reset(file.release());
}

FileLock::~FileLock() {
    if (isLost()) file_.release();  // it is another's to close
    const std::lock_guard<ProcessMutex> lock(allMutex);
    all().erase(std::find(all().begin(), all().end(), this));
}

void FileLock::beforeFork() {
    forks::acknowledge();
    allMutex.lock();
    for (FileLock* lock : all()) {
        lock->renewMutexes();
        pthread_mutex_lock(&lock->inside_);
    }
}

void FileLock::afterForkInParent() {
    for (FileLock* lock : all()) pthread_mutex_unlock(&lock->inside_);
    allMutex.unlock();
}

void FileLock::afterForkInChild() {
    const int keptErrno = errno;
    for (FileLock* lock : all()) {
        pthread_mutex_init(&lock->queue_, nullptr);  // a thread of the parent may have had it
        lock->mutexesOf_.store(forks::generation(), std::memory_order_relaxed);
        // The parent's file must go in any case. Replacing it by the directory needs no descriptor.
        if (!lock->openAnew()) lock->exchangeFor(lock->directory_.descriptor);
    }
    errno = keptErrno;
    afterForkInParent();
}

/// After a fork without handlers, threads of the parent may hold both mutexes. None of this process can hold them
/// yet: before that it gets its own generation, and renews them.
void FileLock::renewMutexes() {
    if (mutexesOf_.load(std::memory_order_relaxed) == forks::generation()) return;
    pthread_mutex_init(&queue_, nullptr);
    pthread_mutex_init(&inside_, nullptr);
    // Release: see lock().
    mutexesOf_.store(forks::generation(), std::memory_order_release);
}

bool FileLock::lock(Patience patience) {
    forks::acknowledge();
    // Acquire: sees them initialised if another thread has renewed them.
    if (mutexesOf_.load(std::memory_order_acquire) != forks::generation()) {
        const std::lock_guard<ProcessMutex> lock(allMutex);
        renewMutexes();
    }
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
    if (isLost()) {
        errno = EBADF;
        return false;
    }
    if (generation_ != forks::generation() && !openAnew()) return false;
    const int how = patience == Patience::wait ? LOCK_EX : LOCK_EX | LOCK_NB;
    if (uninterrupted([&] { return flock(file_.get(), how); }) == -1) return false;
    if (isStillThere()) return true;
    unlockFile();
    return false;
}

/// False with errno: ESTALE when the file has been removed, EBADF when somebody has closed the descriptor, which may
/// be another's by now.
bool FileLock::isStillThere() const {
    struct stat status;
    if (fstat(file_.get(), &status) == -1) return false;
    if (identity_.isOf(status) && status.st_nlink != 0) return true;
    errno = identity_.isOf(status) ? ESTALE : EBADF;
    return false;
}

void FileLock::unlock() {
    unlockFile();
    pthread_mutex_unlock(&inside_);
    pthread_mutex_unlock(&queue_);
}

/// errno stays. Explicit, since closing does not unlock while a child or a program being started has a copy of the
/// descriptor. If the kernel has no memory to unlock, reopening does; without either, nobody else would get the lock
/// while this process lives.
void FileLock::unlockFile() {
    constexpr int attempts = 100;
    const int keptErrno = errno;
    for (int left = attempts; left != 0; --left) {
        if (flock(file_.get(), LOCK_UN) == 0 || openAnew()) break;
    }
    errno = keptErrno;
}

/// Replaces the open file, shared with the parent, by one of this process under its number. False with errno.
bool FileLock::openAnew() {
    const ScopedDescriptor fresh(open(identity_, directory_.descriptor, name_));
    if (fresh.get() == -1 || !exchangeFor(fresh.get())) return false;
    generation_ = forks::generation();
    return true;
}

/// Closes the open file, and has its number stand for another. False with errno; EBADF when the number is not this
/// lock's any more, and nothing is done to whatever it stands for.
bool FileLock::exchangeFor(int other) {
    if (isLost() || !isOwn(file_.get())) {
        errno = EBADF;
        return false;
    }
    return uninterrupted([&] { return dup3(other, file_.get(), O_CLOEXEC); }) != -1;
}

bool FileLock::hasItsFiles() const {
    return isOwn(file_.get()) && isOwn(directory_.descriptor);
}

/// Whether the number is that of the file, or of the directory, which a child may have put in its place. If fstat
/// fails but for EBADF it is assumed to be: the parent's file must not stay open for that.
bool FileLock::isOwn(int descriptor) const {
    struct stat status;
    if (fstat(descriptor, &status) == -1) return errno != EBADF;
    return identity_.isOf(status) || directory_.identity.isOf(status);
}

}  // namespace linx
