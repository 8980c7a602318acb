#ifndef LINXIPC_INSPECT_LOG_MASK_H
#define LINXIPC_INSPECT_LOG_MASK_H

#include "host/arena/spid.h"
#include "inspect/place.h"

namespace linx {
namespace inspect {

/// Has the process of the endpoint log by this mask from the next end of a receive on. False with errno: ESRCH when the
/// endpoint is not open any more, EACCES without the right to join, or what the file system says.
bool setLogMask(const Place& place, Spid spid, uint32_t mask);

}  // namespace inspect
}  // namespace linx

#endif
