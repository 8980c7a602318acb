#ifndef LINXIPC_HOST_ARENA_DOMAIN_H
#define LINXIPC_HOST_ARENA_DOMAIN_H

#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/arena/arena_file.h"
#include "host/system/file_lock.h"
#include "host/system/scoped_descriptor.h"

namespace linx {

/// A domain that this process has joined: its directory, and its arena mapped, whose file stays open. All endpoints
/// of the process in one domain share one object, which goes with the last of them. Any thread may use it.
class Domain {
public:
    /// Joins the domain that $LINX_DOMAIN names, making it when it is not there, and logs that once. Null with errno:
    /// EACCES, EPROTO, ENOMEM, or what the file system says.
    static std::shared_ptr<Domain> join();

    ~Domain();
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    const Arena& arena() const { return arena_; }
    int directory() const { return directory_.get(); }

    /// The mode of files in the directory: the group has access where the directory gives it.
    unsigned fileMode() const { return fileMode_; }

    /// The lock of the arena, see recovery/domain_lock.h.
    FileLock& lock() const { return lock_; }

private:
    struct Place;
    static bool openPlace(const std::string& path, Place& place);
    static std::shared_ptr<Domain> mapPlace(Place& place);

    Domain(Place& place, ArenaMapping mapping, uint32_t pageCount);

    ScopedDescriptor directory_;
    unsigned fileMode_;
    mutable FileLock lock_;
    ArenaMapping mapping_;
    Arena arena_;
};

}  // namespace linx

#endif
