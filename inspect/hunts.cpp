#include "inspect/hunts.h"

#include "host/arena/hunt_table.h"
#include "host/arena/name_table.h"
#include "host/arena/slot_table.h"

namespace linx {
namespace inspect {

std::vector<PendingHunt> pendingHunts(const Arena& arena) {
    std::vector<PendingHunt> pending;
    forEachHunt(arena, [&](const Hunt& hunt) {
        const Spid hunter = spidOf(hunt.hunter.loadRelaxed());
        if (!isOpen(arena, hunter)) return;
        const Name name = Name::read(hunt.name, hunt.nameLength.loadRelaxed());
        // One hunter after another of the same slot may have used the entry while it was copied.
        if (name.hash() == hunt.nameHash.loadRelaxed()) pending.push_back({hunter, name.text()});
    });
    return pending;
}

}  // namespace inspect
}  // namespace linx
