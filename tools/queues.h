#ifndef LINXIPC_TOOLS_QUEUES_H
#define LINXIPC_TOOLS_QUEUES_H

#include <map>
#include <string>

#include "inspect/accounts.h"

namespace tools {

/// Signals of one number that wait for an endpoint.
struct Pile {
    linx::inspect::Amount amount;
    std::map<std::string, uint32_t> senders;  ///< signals by the sender's name
};

using Piles = std::map<uint32_t, Pile>;  ///< by number

/// What waits for whom, in a snapshot.
std::map<linx::Spid, Piles> queuesOf(const linx::Arena& arena);

/// The first of them by name, and how many more there are.
std::string sendersOf(const Pile& pile);

}  // namespace tools

#endif
