#ifndef LINXIPC_HOST_RECOVERY_REPAIR_H
#define LINXIPC_HOST_RECOVERY_REPAIR_H

namespace linx {

class DomainLock;

/// Mends what a process left half done that died holding the domain lock. Everything that the domain lock guards is
/// derived from what single stores have made true (the life of a slot, the owner and home of a block, the first entry
/// of a run), so it is derived again. Safe to repeat: a process that dies here leaves the same work to the next.
void repair(const DomainLock& lock);

}  // namespace linx

#endif
