#ifndef LINXIPC_INSPECT_SNAPSHOT_H
#define LINXIPC_INSPECT_SNAPSHOT_H

#include <memory>

#include "host/arena/arena.h"
#include "host/arena/arena_file.h"

namespace linx {
namespace inspect {

/*
 * An arena as it was a moment ago: its tables and the heads of its blocks, in memory of one's own, where all that
 * reads an arena reads them.
 *
 * It is read and not mapped. Whoever touches a mapped page that has no memory gives it some, and is ended where there
 * is none, or where the file is cut short; a read returns nothing, or fails. And nobody changes what has been
 * checked. No lock is taken, so its parts are of moments that lie a little apart: a signal on its way may be in two
 * places or in none. The name in an entry of a table is that of its owner; counts beside it may be a moment older.
 */
class Snapshot {
public:
    /// Null with errno: EPROTO when the file is no arena of this make, or is being cut short; ENOMEM.
    static std::unique_ptr<Snapshot> take(int file);

    const Arena& arena() const { return arena_; }

private:
    Snapshot(ArenaMapping image, uint32_t pageCount) : image_(std::move(image)), arena_(image_.get(), pageCount) {}

    ArenaMapping image_;
    Arena arena_;
};

}  // namespace inspect
}  // namespace linx

#endif
