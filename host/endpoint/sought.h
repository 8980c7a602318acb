#ifndef LINXIPC_HOST_ENDPOINT_SOUGHT_H
#define LINXIPC_HOST_ENDPOINT_SOUGHT_H

#include <vector>

#include "host/arena/name_table.h"

namespace linx {

/// A name with a slash: the link that leads there, and what is sought behind it.
struct Sought {
    Spid hunter = Spid::none;
    Name name;

    const char* rest() const;
};

/// What stands behind the first slash of a name; null where nothing does, or nothing stands before it.
const char* restBehindLink(const Name& name);

/// The link that leads to the name; none when there is none. Takes no lock, and may miss one like findName.
Spid findLink(const Arena& arena, const Name& name);

/// The hunts that are pending for names behind this link. Under the domain lock.
std::vector<Sought> soughtBehind(const Arena& arena, const Name& link);

}  // namespace linx

#endif
