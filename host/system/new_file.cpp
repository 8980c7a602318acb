#include "host/system/new_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "host/system/scoped_descriptor.h"

namespace linx {
namespace {

constexpr size_t randomDigits = 16;

std::string unfinishedName(const char* name) {
    uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
    }
    char digits[randomDigits + 1];
    std::snprintf(digits, sizeof digits, "%016" PRIx64, number);
    return std::string(name) + '.' + digits;
}

bool isUnfinishedName(const char* entry, const char* name) {
    const size_t length = std::strlen(name);
    return std::strncmp(entry, name, length) == 0 && entry[length] == '.' &&
           std::strlen(entry) == length + 1 + randomDigits &&
           std::strspn(entry + length + 1, "0123456789abcdef") == randomDigits;
}

/// The maker of an unfinished file holds its lock; a leftover's lock is free.
bool lock(int file) {
    return flock(file, LOCK_EX | LOCK_NB) == 0;
}

/// Closing is not enough where a child forked meanwhile has a copy of the descriptor; and the file may be the arena.
void unlock(int file) {
    flock(file, LOCK_UN);
}

void removeUnfinished(int directory, const char* name) {
    ScopedDescriptor self(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(self.get()), closedir);
    if (entries == nullptr) return;
    self.release();
    while (const dirent* entry = readdir(entries.get())) {
        if (!isUnfinishedName(entry->d_name, name)) continue;
        const ScopedDescriptor file(openat(directory, entry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file.get() == -1 || !lock(file.get())) continue;
        unlinkat(directory, entry->d_name, 0);
        unlock(file.get());
    }
}

/// A new file under an unfinished name, locked. -1 with errno.
int openUnfinished(int directory, const char* name, std::string& unfinished) {
    for (;;) {
        unfinished = unfinishedName(name);
        ScopedDescriptor file(openat(directory, unfinished.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (file.get() == -1) return -1;
        struct stat status;
        // Somebody may have taken it for a leftover before it was locked.
        const bool locked = lock(file.get());
        if (locked && fstat(file.get(), &status) == 0 && status.st_nlink != 0) return file.release();
        if (!locked && errno != EWOULDBLOCK) {  // the file system knows no locks: no domain can be here
            const int failure = errno;
            unlinkat(directory, unfinished.c_str(), 0);
            errno = failure;
            return -1;
        }
    }
}

}  // namespace

bool makeWhole(int directory, const char* name, const Fill& fill) {
    {
        const ScopedDescriptor file(openat(directory, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
        if (file.get() != -1) {
            if (!fill(file.get())) return false;
            char path[32];
            std::snprintf(path, sizeof path, "/proc/self/fd/%d", file.get());
            if (linkat(AT_FDCWD, path, directory, name, AT_SYMLINK_FOLLOW) == 0 || errno == EEXIST) return true;
        }
    }
    return makeWholeUnderName(directory, name, fill);
}

bool makeWholeUnderName(int directory, const char* name, const Fill& fill) {
    removeUnfinished(directory, name);
    std::string unfinished;
    const ScopedDescriptor file(openUnfinished(directory, name, unfinished));
    if (file.get() == -1) return false;
    const bool done =
        fill(file.get()) && (linkat(directory, unfinished.c_str(), directory, name, 0) == 0 || errno == EEXIST);
    const int failure = errno;
    unlinkat(directory, unfinished.c_str(), 0);
    unlock(file.get());
    errno = failure;
    return done;
}

}  // namespace linx
