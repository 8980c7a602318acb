#ifndef LINXIPC_TOOLS_PAYLOAD_H
#define LINXIPC_TOOLS_PAYLOAD_H

#include <vector>

#include "tools/options.h"

namespace tools {

using Bytes = std::vector<unsigned char>;

/// What is to be sent. Throws a Failure when that is too much, or cannot be had.
Bytes payloadFrom(const PayloadOptions& options);

}  // namespace tools

#endif
