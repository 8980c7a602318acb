#ifndef LINXIPC_INSPECT_NAMES_H
#define LINXIPC_INSPECT_NAMES_H

#include <optional>
#include <string>

#include "host/arena/spid.h"

namespace linx {
namespace inspect {

/// What the endpoint is called, open or ended, in the arena that is open as `file`. None when its slot has gone to
/// another, or cannot be read. A look at one slot: for those who do not need a snapshot of everything.
std::optional<std::string> nameOf(int file, Spid spid);

}  // namespace inspect
}  // namespace linx

#endif
