#ifndef LINXIPC_INSPECT_ACCOUNTS_H
#define LINXIPC_INSPECT_ACCOUNTS_H

#include <vector>

#include "host/arena/arena.h"

namespace linx {
namespace inspect {

/// So many signals, and the memory that they take.
struct Amount {
    uint32_t signals = 0;
    uint64_t bytes = 0;

    void add(BlockRef block) {
        ++signals;
        bytes += uint64_t{linesOfClass(block.sizeClass)} * lineBytes;
    }
};

/// What an endpoint has of the domain's memory.
struct Account {
    Amount held;    ///< what its user has received or made and not let go of
    Amount queued;  ///< what waits to be received
    Amount lent;    ///< what is on its account, whoever has it: all that it has made and that is not free again
};

/// The accounts of the open endpoints, by slot.
std::vector<Account> accountsOf(const Arena& arena);

}  // namespace inspect
}  // namespace linx

#endif
