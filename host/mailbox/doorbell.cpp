#include "host/mailbox/doorbell.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "host/system/scoped_descriptor.h"
#include "host/system/signal_shield.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace doorbell {
namespace {

struct FileName {
    explicit FileName(Spid spid) { std::snprintf(text, sizeof text, "bell.%08x", numberOf(spid)); }
    char text[16];
};

/// Records are shorter than a pipe's atomic write, so none is torn. 0, EAGAIN when the doorbell is full, EPIPE, or
/// another errno value.
int writeRecord(int descriptor, uint32_t record) {
    SignalShield shield(SIGPIPE);
    const ssize_t written = uninterrupted([&] { return write(descriptor, &record, sizeof record); });
    if (written == static_cast<ssize_t>(sizeof record)) return 0;
    const int failure = written == -1 ? errno : EIO;
    if (failure == EPIPE) shield.raised();
    return failure;
}

/// Makes the pipe allocate the one page that it needs, and keep it: no later ring fails for lack of memory. False
/// with errno.
bool reservePage(int descriptor) {
    // One page is plenty, and lets a user without privileges have thousands of doorbells.
    fcntl(descriptor, F_SETPIPE_SZ, static_cast<int>(capacity * sizeof(uint32_t)));
    uint32_t record = 0;
    errno = writeRecord(descriptor, record);
    if (errno != 0) return false;
    // EAGAIN: some other process has already read the record.
    return uninterrupted([&] { return read(descriptor, &record, sizeof record); }) != -1 || errno == EAGAIN;
}

/// Whether it is a pipe, and no file that somebody has put in the place of one. False with errno.
bool isPipe(const struct stat& status) {
    if (S_ISFIFO(status.st_mode)) return true;
    errno = EPROTO;
    return false;
}

/// Checked by name first, since opening some files has side effects, and again after opening.
int openPipe(int directory, const char* name, int access) {
    struct stat status;
    if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == -1 || !isPipe(status)) return -1;
    ScopedDescriptor pipe(
        uninterrupted([&] { return openat(directory, name, access | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW); }));
    const bool opened = pipe.get() != -1 && fstat(pipe.get(), &status) == 0 && isPipe(status);
    return opened ? pipe.release() : -1;
}

}  // namespace

int make(int directory, Spid spid, unsigned mode) {
    const FileName name(spid);
    if (mkfifoat(directory, name.text, mode) == -1) {
        if (errno != EEXIST) return -1;
        // Left by an endpoint that died while it opened; or a directory, which stays in the way.
        if (!remove(directory, spid) || mkfifoat(directory, name.text, mode) == -1) return -1;
    }
    ScopedDescriptor descriptor(openPipe(directory, name.text, O_RDWR));
    const bool made = descriptor.get() != -1 && fchmod(descriptor.get(), mode) == 0 && reservePage(descriptor.get());
    return made ? descriptor.release() : -1;
}

int open(int directory, Spid spid) {
    return openPipe(directory, FileName(spid).text, O_WRONLY);
}

Spid spidOfFile(const char* name) {
    uint32_t number = 0;
    if (std::sscanf(name, "bell.%8" SCNx32, &number) != 1 || std::strcmp(FileName(Spid{number}).text, name) != 0) {
        return Spid::none;
    }
    return isSpid(Spid{number}) ? Spid{number} : Spid::none;
}

bool remove(int directory, Spid spid) {
    return unlinkat(directory, FileName(spid).text, 0) == 0 || errno == ENOENT || errno == EISDIR;
}

int ring(int descriptor) {
    constexpr int attempts = 3;  // what memory there is may change at any moment
    int result = EAGAIN;
    for (int left = attempts; left != 0; --left) {
        result = writeRecord(descriptor, 0);
        if (result == 0 || result == EAGAIN) return 0;
        if (result == EPIPE) break;
    }
    return result;
}

bool tell(int descriptor, uint32_t record) {
    return writeRecord(descriptor, record) == 0;
}

uint32_t drain(int descriptor, uint32_t (&records)[capacity]) {
    const ssize_t got = uninterrupted([&] { return read(descriptor, records, sizeof records); });
    return got <= 0 ? 0 : static_cast<uint32_t>(static_cast<size_t>(got) / sizeof *records);
}

bool isDead(int descriptor) {
    pollfd poll = {descriptor, 0, 0};
    return ::poll(&poll, 1, 0) == 1 && (poll.revents & POLLERR) != 0;
}

}  // namespace doorbell
}  // namespace linx
