#ifndef LINXIPC_HOST_SYSTEM_SIGNAL_SHIELD_H
#define LINXIPC_HOST_SYSTEM_SIGNAL_SHIELD_H

#include <signal.h>

namespace linx {

/// While it lives, keeps a signal that the kernel may send to this thread for one of its calls (SIGPIPE, SIGXFSZ)
/// from being delivered, and from staying behind: the error of the call is enough. Leaves disposition and mask as
/// they were, and what others have sent.
class SignalShield {
public:
    explicit SignalShield(int signal);
    ~SignalShield();
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

    /// A call has failed for that for which the kernel sends the signal.
    void raised() { raised_ = true; }

private:
    sigset_t shielded_;
    sigset_t before_;
    bool pendingBefore_ = false;
    bool raised_ = false;
};

}  // namespace linx

#endif
