#ifndef LINXIPC_HOST_SYSTEM_THIS_PROCESS_H
#define LINXIPC_HOST_SYSTEM_THIS_PROCESS_H

#include <cstdint>

namespace linx {

/// When a process was started, of which `stat` is what /proc/PID/stat says: in clock ticks since the boot, of which
/// the lower bits tell it from others of the same number. 0 where it says nothing.
uint32_t startIn(const char* stat);
uint32_t startOfThisProcess();

/// The namespace in which this process has its number, by inode; 0 when that cannot be seen.
uint32_t namespaceOfThisProcess();

}  // namespace linx

#endif
