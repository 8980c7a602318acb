#ifndef LINXIPC_HOST_POOL_PRESSURE_H
#define LINXIPC_HOST_POOL_PRESSURE_H

#include "host/arena/domain.h"

namespace linx {

/// When memory runs out while others keep some that they do not need, they are asked for it. The count in the header
/// tells that from other wake-ups, see Pool::isUnderPressure.
namespace pressure {

constexpr uint32_t patience = 3;  ///< milliseconds that others have to give up what they keep

/// Asks all endpoints but `self` to give up what they keep. What that takes counts as reclaiming.
void raise(const Domain& domain, Spid self);

/// Whether others have been asked so lately that what they give up may still be on its way, whoever has asked.
bool isRecent(const Arena& arena);

}  // namespace pressure
}  // namespace linx

#endif
