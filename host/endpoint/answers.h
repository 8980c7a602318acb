#ifndef LINXIPC_HOST_ENDPOINT_ANSWERS_H
#define LINXIPC_HOST_ENDPOINT_ANSWERS_H

#include "host/arena/name_table.h"
#include "host/recovery/domain_lock.h"

namespace linx {

/// Whether anybody hunts for `name`. Under the domain lock.
bool isHunted(const Arena& arena, const Name& name);

/// Answers every hunt for `name`, which `found` has opened. False when a hunter could not be answered (to be retried)
/// or could not be rung (the ring is owed). Under the domain lock.
bool answerHunts(const DomainLock& lock, Spid found, const Name& name);

}  // namespace linx

#endif
