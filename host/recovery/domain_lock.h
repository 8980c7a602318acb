#ifndef LINXIPC_HOST_RECOVERY_DOMAIN_LOCK_H
#define LINXIPC_HOST_RECOVERY_DOMAIN_LOCK_H

#include "host/arena/domain.h"

namespace linx {

/// Holds the lock of a domain while it lives: open, close, hunting an absent name, leasing memory and reaping are
/// done one at a time among all processes. The kernel lets go of it when the holder dies; whoever comes next then
/// finds the header's dirty word set and repairs what was left half done.
///
/// A holder that is stopped delays all who wait for the lock, so sending and receiving only try it, and do without.
/// One thread must not hold it twice.
class DomainLock {
public:
    using Patience = FileLock::Patience;

    explicit DomainLock(const Domain& domain, Patience patience = Patience::wait);
    ~DomainLock();
    DomainLock(const DomainLock&) = delete;
    DomainLock& operator=(const DomainLock&) = delete;

    /// False when the lock could not be had; `errno` tells why.
    bool isHeld() const { return isHeld_; }

    const Domain& domain() const { return domain_; }
    const Arena& arena() const { return domain_.arena(); }

private:
    const Domain& domain_;
    const bool isHeld_;
};

}  // namespace linx

#endif
