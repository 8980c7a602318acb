#ifndef LINXIPC_HOST_ENDPOINT_ANSWERS_H
#define LINXIPC_HOST_ENDPOINT_ANSWERS_H

#include "host/arena/name_table.h"
#include "host/recovery/cold_section.h"

namespace linx {

/// Whether anybody hunts for `name`. Under the cold lock.
bool isHunted(const Arena& arena, const Name& name);

/// Answers all who hunt for `name`, under which `found` is open. False when somebody could not be answered, or be
/// rung for it: then it is to be tried again. Under the cold lock.
bool answerHunts(const ColdSection& cold, Spid found, const Name& name);

}  // namespace linx

#endif
