#ifndef LINXIPC_INSPECT_SNAPSHOT_H
#define LINXIPC_INSPECT_SNAPSHOT_H

#include <memory>

#include "host/arena/arena.h"
#include "host/arena/arena_file.h"

namespace linx {
namespace inspect {

/*
 * A recent copy of an arena: its tables and the heads of its blocks, in private memory, where any code that reads an
 * arena can read them.
 *
 * The file is read, not mapped. Touching a mapped page without memory allocates some, and ends the process if there
 * is none or the file is cut short; a read returns nothing, or fails. And nobody changes what has been checked. No
 * lock is taken, so its parts are of slightly different moments: a signal on its way may be in two places or in none.
 * The name in an entry of a table is that of its owner; counts beside it may be a moment older.
 */
class Snapshot {
public:
    /// What endpoints have recorded is as much again as everything else: those who look often leave it out.
    enum class Events { copied, leftOut };

    /// Null with errno: EPROTO when the file is no arena of this make, or is being cut short; ENOMEM.
    static std::unique_ptr<Snapshot> take(int file, Events events = Events::copied);

    const Arena& arena() const { return arena_; }

private:
    Snapshot(ArenaMapping image, uint32_t pageCount) : image_(std::move(image)), arena_(image_.get(), pageCount) {}

    ArenaMapping image_;
    Arena arena_;
};

}  // namespace inspect
}  // namespace linx

#endif
