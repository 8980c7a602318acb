#ifndef LINXIPC_HOST_HANDLES_H
#define LINXIPC_HOST_HANDLES_H

#include <memory>

#include "platform/linx.h"

namespace linx {

class Endpoint;

/// The handles of this process. A handle is the address of an entry in a table, so that any pointer at all can be
/// told from a handle without following it; entries are used again the oldest first, so that a closed handle is told
/// for long. Any thread may use the table.
namespace handles {

/// Gives out a handle for the endpoint; null when there are too many.
LINX* add(std::unique_ptr<Endpoint> endpoint);

/// The endpoint behind the handle; null when it is none.
Endpoint* find(const LINX* handle);

/// Takes the handle back.
std::unique_ptr<Endpoint> remove(LINX* handle);

}  // namespace handles
}  // namespace linx

#endif
