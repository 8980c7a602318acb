#include "host/mailbox/bell.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <new>

#include "host/arena/scoped_descriptor.h"

namespace linx {
namespace bell {
namespace {

struct Name {
    explicit Name(Spid spid) { std::snprintf(text, sizeof text, "bell.%08x", spid); }
    char text[16];
};

/// Keeps the SIGPIPE that a write of this thread may raise from being delivered, and from staying behind.
class SigpipeShield {
public:
    SigpipeShield() {
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_);
        // One that was pending already belongs to somebody else; it can only be there if it was blocked before.
        if (sigismember(&before_, SIGPIPE) != 0) {
            sigset_t pending;
            sigpending(&pending);
            pendingBefore_ = sigismember(&pending, SIGPIPE) != 0;
        }
    }
    ~SigpipeShield() {
        const int keptErrno = errno;
        if (raised_ && !pendingBefore_) {
            const timespec now = {0, 0};
            while (sigtimedwait(&sigpipe_, nullptr, &now) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = keptErrno;
    }
    void raised() { raised_ = true; }

private:
    sigset_t sigpipe_;
    sigset_t before_;
    bool pendingBefore_ = false;
    bool raised_ = false;
};

/// Records are shorter than what a pipe takes in one piece, so none is torn. 0, EAGAIN when the bell is full, or
/// EPIPE.
int writeRecord(int descriptor, uint32_t record) {
    SigpipeShield shield;
    for (;;) {
        if (write(descriptor, &record, sizeof record) == static_cast<ssize_t>(sizeof record)) return 0;
        if (errno == EINTR) continue;
        if (errno != EPIPE) return EAGAIN;
        shield.raised();
        return EPIPE;
    }
}

/// Whether it is a pipe, and no file that somebody has put in the place of one. False with errno.
bool isPipe(const struct stat& status) {
    if (S_ISFIFO(status.st_mode)) return true;
    errno = EPROTO;
    return false;
}

/// Asked by name first, since opening some files does something to them, and then of what was opened.
int openPipe(int directory, const char* name, int access) {
    struct stat status;
    if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == -1 || !isPipe(status)) return -1;
    ScopedDescriptor pipe(openat(directory, name, access | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    const bool opened = pipe.get() != -1 && fstat(pipe.get(), &status) == 0 && isPipe(status);
    return opened ? pipe.release() : -1;
}

}  // namespace

int make(int directory, Spid spid, unsigned mode) {
    const Name name(spid);
    if (mkfifoat(directory, name.text, mode) == -1) {
        if (errno != EEXIST) return -1;
        unlinkat(directory, name.text, 0);  // left by an endpoint that died while it opened
        if (mkfifoat(directory, name.text, mode) == -1) return -1;
    }
    ScopedDescriptor descriptor(openPipe(directory, name.text, O_RDWR));
    if (descriptor.get() != -1) {
        // One page is plenty, and lets a user without privileges have thousands of bells.
        fcntl(descriptor.get(), F_SETPIPE_SZ, 4096);
        if (fchmod(descriptor.get(), mode) == 0) return descriptor.release();
    }
    const int failure = errno;
    unlinkat(directory, name.text, 0);
    errno = failure;
    return -1;
}

int open(int directory, Spid spid) {
    return openPipe(directory, Name(spid).text, O_WRONLY);
}

void remove(int directory, Spid spid) {
    unlinkat(directory, Name(spid).text, 0);
}

int ring(int descriptor) {
    const int result = writeRecord(descriptor, 0);
    return result == EAGAIN ? 0 : result;
}

bool introduce(int descriptor, Spid self) {
    return writeRecord(descriptor, self) == 0;
}

void drain(int descriptor, std::vector<Spid>* introduced) {
    uint32_t records[1024];  // as many as a bell holds
    ssize_t got;
    do {
        got = read(descriptor, records, sizeof records);
        if (introduced == nullptr || got <= 0) continue;
        try {
            std::copy_if(records, records + static_cast<size_t>(got) / sizeof *records,
                         std::back_inserter(*introduced), [](uint32_t record) { return record != 0; });
        } catch (const std::bad_alloc&) {
        }
    } while (got == static_cast<ssize_t>(sizeof records) || (got == -1 && errno == EINTR));
}

bool isDead(int descriptor) {
    pollfd poll = {descriptor, 0, 0};
    return ::poll(&poll, 1, 0) == 1 && (poll.revents & POLLERR) != 0;
}

}  // namespace bell
}  // namespace linx
