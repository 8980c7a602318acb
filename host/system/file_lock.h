#ifndef LINXIPC_HOST_SYSTEM_FILE_LOCK_H
#define LINXIPC_HOST_SYSTEM_FILE_LOCK_H

#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>

#include "host/system/scoped_descriptor.h"

namespace linx {

/// The lock of a file that several processes share, as one process has it: one holder at a time among its threads and
/// among the processes. The kernel lets go of it when the holder dies. Any thread may use it.
///
/// One descriptor serves for good. Such a lock belongs to the open file, which a child shares with its parent: if the
/// parent were killed while it held the lock, nobody would get it before the child ended. So a child opens the file
/// anew: right after the fork, before it may drop privileges, or else before it first locks. And nobody may map it by
/// this descriptor, since a mapping keeps the open file, too. A fork waits for a thread that holds the lock, so that
/// no child is made in the middle of what the lock guards, but not for one that only waits for it: what delays this
/// lock delays neither forks nor other locks.
class FileLock {
public:
    /// Which file it is, whatever its name.
    struct Identity {
        uint64_t device;
        uint64_t inode;

        explicit Identity(const struct stat& status) : device(status.st_dev), inode(status.st_ino) {}
        bool isOf(const struct stat& status) const { return device == status.st_dev && inode == status.st_ino; }
    };

    /// Opens the file that is called `name` in `directory`. -1 with errno; ESTALE when it is another one by now.
    static int open(const Identity& identity, int directory, const char* name);

    /// Where the file is: a directory that the process has open.
    struct Directory {
        int descriptor;
        Identity identity;
    };

    /// The lock of the file that `open` has opened. Takes over `file`, and nothing else.
    FileLock(ScopedDescriptor& file, const Identity& identity, const Directory& directory, const char* name);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    enum class Patience {
        wait,
        tryOnce  ///< EWOULDBLOCK when somebody has the lock
    };

    /// False with errno; ESTALE when the file has been removed.
    bool lock(Patience patience);
    void unlock();

    /// The open file, whether locked or not.
    int file() const { return file_.get(); }
    const Identity& identity() const { return identity_; }

    /// Whether both descriptors still stand for what they were opened for. The program may have closed them, as
    /// daemons close all that they inherit, and may have reused their numbers.
    bool hasItsFiles() const;

    /// Declares them lost: this object never gets the lock again, whatever the numbers stand for.
    void giveUp() { isLost_.store(true, std::memory_order_relaxed); }
    bool isLost() const { return isLost_.load(std::memory_order_relaxed); }

    /// For the fork handlers of whoever makes locks, who may hold a mutex of its own meanwhile.
    static void beforeFork();
    static void afterForkInParent();
    static void afterForkInChild();

private:
    void renewMutexes();
    bool lockFile(Patience patience);
    void unlockFile();
    bool isStillThere() const;
    bool isOwn(int descriptor) const;
    bool openAnew();
    bool exchangeFor(int other);

    pthread_mutex_t queue_ = PTHREAD_MUTEX_INITIALIZER;   ///< of the thread that has the lock or comes next
    pthread_mutex_t inside_ = PTHREAD_MUTEX_INITIALIZER;  ///< of the thread that has the lock: a fork waits for it
    ScopedDescriptor file_;
    const Identity identity_;
    const Directory directory_;
    const char* const name_;
    std::atomic<bool> isLost_{false};
    uint32_t generation_;              ///< of the process that has opened the file
    std::atomic<uint32_t> mutexesOf_;  ///< the generation of the process whose threads have the mutexes
};

}  // namespace linx

#endif
