#ifndef LINXIPC_TOOLS_NAMED_WAITS_H
#define LINXIPC_TOOLS_NAMED_WAITS_H

#include <string>
#include <vector>

#include "inspect/waits.h"

namespace tools {

/// An endpoint that waits for another, with the names of both.
struct NamedWait {
    std::string from;
    std::string to;
    uint32_t number;
    uint32_t sent;
    double seconds;
    bool isInCycle;
};

struct NamedWaits {
    std::vector<NamedWait> edges;
    std::vector<std::vector<std::string>> cycles;
};

/// Who waits for whom among the endpoints of this snapshot.
NamedWaits namedWaits(const linx::Arena& arena, const std::vector<linx::inspect::Endpoint>& endpoints);

/// "a -> b -> a".
std::string wayRound(const std::vector<std::string>& cycle);

}  // namespace tools

#endif
