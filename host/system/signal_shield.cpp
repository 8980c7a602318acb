#include "host/system/signal_shield.h"

#include <pthread.h>
#include <time.h>

#include <cerrno>

namespace linx {

SignalShield::SignalShield(int signal) {
    sigemptyset(&shielded_);
    sigaddset(&shielded_, signal);
    pthread_sigmask(SIG_BLOCK, &shielded_, &before_);
    // One that was pending already belongs to somebody else; it can only be there if it was blocked before.
    if (sigismember(&before_, signal) != 0) {
        sigset_t pending;
        sigpending(&pending);
        pendingBefore_ = sigismember(&pending, signal) != 0;
    }
}

SignalShield::~SignalShield() {
    const int keptErrno = errno;
    if (raised_ && !pendingBefore_) {
        const timespec now = {0, 0};
        while (sigtimedwait(&shielded_, nullptr, &now) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = keptErrno;
}

}  // namespace linx
