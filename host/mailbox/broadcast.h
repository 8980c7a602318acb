#ifndef LINXIPC_HOST_MAILBOX_BROADCAST_H
#define LINXIPC_HOST_MAILBOX_BROADCAST_H

#include "host/arena/domain.h"

namespace linx {

/// Rings every open endpoint that has mail and asks to be rung: for a sender that died before it rang, or had no
/// memory or descriptor for it. `ringer` is the index of the caller's slot, or none under the domain lock. False when
/// one of them could not be rung.
bool ringSleepers(const Domain& domain, SlotIndex ringer = SlotIndex::none);

/// Tells every open endpoint that some have ended without the kernel reporting it, because forked processes still
/// hold copies of their doorbells.
void tellOfEnds(const Domain& domain);

}  // namespace linx

#endif
