#ifndef LINXIPC_HOST_RECOVERY_RETIRE_H
#define LINXIPC_HOST_RECOVERY_RETIRE_H

#include "host/recovery/domain_lock.h"

namespace linx {

/// What an endpoint may leave behind.
enum class Leftovers {
    none,     ///< it has given back every block itself
    held,     ///< it may still own blocks: the whole arena is scanned
    anything  ///< it died at any instruction: with blocks anywhere, with a signal pushed and not rung for
};

// All of this is safe to repeat: what a process leaves half done when it dies in here, the next one finishes.

/// Ends an open endpoint: its mailbox takes nothing more, its name is free, its blocks are in the central lists, its
/// slot will be used again.
void retire(const DomainLock& lock, Spid spid, Leftovers leftovers);

/// Ends endpoints whose processes have died, and which nobody has ended yet, together: the arena is looked through
/// once.
void reap(const DomainLock& lock, const Spid* dead, size_t count);

/// Ends every endpoint whose process has died. Each is asked for that, which takes long where there are many.
void reapAllDead(const DomainLock& lock);

/// The same unless done a moment ago: for failing calls that are made again and again. How often all endpoints
/// together do it is bounded, see throttle.h. Whether it was done.
bool reapAllDeadIfDue(const DomainLock& lock);

/// Whether the process of an open endpoint has died, asking its doorbell. False also when the doorbell cannot be
/// asked; then, and only then, errno changes and tells why.
bool hasDied(const Domain& domain, Spid spid);

}  // namespace linx

#endif
