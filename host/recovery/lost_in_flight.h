#ifndef LINXIPC_HOST_RECOVERY_LOST_IN_FLIGHT_H
#define LINXIPC_HOST_RECOVERY_LOST_IN_FLIGHT_H

#include "host/recovery/domain_lock.h"
#include "host/recovery/slot_set.h"

namespace linx {

/// An endpoint that dies between giving a block its next owner and pushing it leaves the block in no stack: only its
/// slot's `sending` names it. Gives such blocks of `dead` to the central lists. Under the domain lock; their own
/// stacks are closed.
void recoverLostInFlight(const DomainLock& lock, const SlotSet& dead);

}  // namespace linx

#endif
