#ifndef LINXIPC_HOST_POOL_PRESSURE_H
#define LINXIPC_HOST_POOL_PRESSURE_H

#include "host/arena/domain.h"

namespace linx {

/// What happens when memory has run out though others keep some that they do not need: they are asked for it. The
/// count in the header tells them from other wake-ups, see Pool::isUnderPressure.
namespace pressure {

/// Asks all endpoints but `self` to give up what they keep. False when nobody has anything.
bool raise(const Domain& domain, Spid self);

}  // namespace pressure
}  // namespace linx

#endif
