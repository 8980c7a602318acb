#ifndef LINXIPC_HOST_RECOVERY_REPAIR_H
#define LINXIPC_HOST_RECOVERY_REPAIR_H

namespace linx {

class DomainLock;

/// Repairs what a process left half done when it died holding the domain lock. All that the lock guards is derived
/// from facts set by single stores (the life of a slot, the owner and home of a block, the first entry of a run), so
/// it is derived again. Safe to repeat: a process that dies here leaves the same work to the next.
void repair(const DomainLock& lock);

}  // namespace linx

#endif
