#ifndef LINXIPC_HOST_ARENA_ARENA_FILE_H
#define LINXIPC_HOST_ARENA_ARENA_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>

namespace linx {

constexpr char arenaFileName[] = "arena";

/// Opens the arena of the directory. -1 with errno.
int openArenaFile(int directory);

/// The same, making it when there is none: whole before it gets its name, so that two first endpoints at the same
/// instant agree on one. `made` tells whether it was not there before. -1 with errno.
int openOrMakeArenaFile(int directory, unsigned mode, bool& made);

/// The number of pages that the file's header promises; 0 with errno: EPROTO when the file is no arena of this make,
/// or is not as long as its header says, otherwise why it cannot be read.
uint32_t checkArenaFile(int file);

struct Unmap {
    size_t bytes;
    void operator()(void* base) const;
};
using ArenaMapping = std::unique_ptr<void, Unmap>;

/// Maps the whole file; null with errno. If all future memory is to be locked (mlockall), pages are locked one by one
/// when touched, instead of all at once.
ArenaMapping mapArenaFile(int file, uint32_t pageCount);

/// Gives memory to pages `first` to `first + count - 1` of the file, so that a full file system is an error here and
/// no fault at the first access. False with errno, ENOMEM when there is no room.
bool reservePages(int file, uint32_t first, uint32_t count);

}  // namespace linx

#endif
