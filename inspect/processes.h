#ifndef LINXIPC_INSPECT_PROCESSES_H
#define LINXIPC_INSPECT_PROCESSES_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/arena/spid.h"

namespace linx {
namespace inspect {

/// A process, as /proc shows it.
struct Process {
    pid_t pid = 0;
    std::string name;
    uid_t user = 0;
    uint32_t started = 0;  ///< see host/system/this_process.h
    bool isStopped = false;
};

/// None when there is no such process, it has ended, or it may not be seen.
std::optional<Process> processOf(pid_t pid);

/// Spids of the doorbells in a domain's directory; none for -1.
std::vector<Spid> doorbellsIn(int directory);

/// The processes that have endpoints in the domain whose directory this is, as far as they may be seen: those that
/// hold a doorbell open for reading. Of several that share an endpoint after a fork the oldest. Processes of other
/// users, and those in pid namespaces beside one's own, are missing.
std::unordered_map<Spid, pid_t> processesIn(int directory);

/// The process that has the lock of the file; none when nobody has it, or somebody who may not be seen.
std::optional<pid_t> lockHolderOf(int file);

}  // namespace inspect
}  // namespace linx

#endif
