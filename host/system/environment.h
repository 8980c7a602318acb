#ifndef LINXIPC_HOST_SYSTEM_ENVIRONMENT_H
#define LINXIPC_HOST_SYSTEM_ENVIRONMENT_H

#include <cstdint>

namespace linx {

/// The number in the environment variable `name`; `otherwise` when it is unset or empty. Anything but a number from
/// `least` to `most` is logged, and `otherwise` used.
uint32_t numberFromEnvironment(const char* name, uint32_t least, uint32_t most, uint32_t otherwise);

}  // namespace linx

#endif
