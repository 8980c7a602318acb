#ifndef LINXIPC_INSPECT_HUNTS_H
#define LINXIPC_INSPECT_HUNTS_H

#include <string>
#include <vector>

#include "host/arena/arena.h"

namespace linx {
namespace inspect {

/// A hunt for a name that nobody has opened.
struct PendingHunt {
    Spid hunter;
    std::string name;

    bool operator==(const PendingHunt& other) const { return hunter == other.hunter && name == other.name; }
};

/// Those of open endpoints, in a snapshot.
std::vector<PendingHunt> pendingHunts(const Arena& arena);

}  // namespace inspect
}  // namespace linx

#endif
