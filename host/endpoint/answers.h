#ifndef LINXIPC_HOST_ENDPOINT_ANSWERS_H
#define LINXIPC_HOST_ENDPOINT_ANSWERS_H

#include "host/arena/name_table.h"
#include "host/recovery/domain_lock.h"

namespace linx {

/// Whether anybody hunts for `name`. Under the domain lock.
bool isHunted(const Arena& arena, const Name& name);

/// Answers all who hunt for `name`, under which `found` is open. False when somebody could not be answered: then
/// it is to be tried again; or not be rung for it: then that is owed. Under the domain lock.
bool answerHunts(const DomainLock& lock, Spid found, const Name& name);

}  // namespace linx

#endif
