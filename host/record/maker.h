#ifndef LINXIPC_HOST_RECORD_MAKER_H
#define LINXIPC_HOST_RECORD_MAKER_H

#include "host/arena/told.h"

namespace linx {

/// The calling process, as an endpoint of its own tells it to others. errno stays.
Maker makerNow();

}  // namespace linx

#endif
