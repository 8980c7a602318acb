#ifndef LINXIPC_HOST_ARENA_DOMAIN_H
#define LINXIPC_HOST_ARENA_DOMAIN_H

#include <memory>

#include "host/arena/arena.h"
#include "host/arena/scoped_descriptor.h"

namespace linx {

/// A domain that this process has joined: its directory, and its arena mapped. All endpoints of the process in one
/// domain share one object; the mapping goes with the last of them. Any thread may use it.
class Domain {
public:
    /// Joins the domain that $LINX_DOMAIN names, making it when it is not there. Null with errno: EACCES, EPROTO,
    /// ENOMEM, or what the file system says.
    static std::shared_ptr<Domain> join();

    ~Domain();
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    const Arena& arena() const { return arena_; }
    int directory() const { return directory_.get(); }

    /// The mode of files in the directory: the group has access where the directory gives it.
    unsigned fileMode() const { return fileMode_; }

    /// Opens the arena's file anew: a descriptor of one's own, as locking needs. -1 with errno; ESTALE when the
    /// directory no longer holds the file that is mapped.
    int openArenaFile() const;

private:
    /// Takes over the descriptor and the mapping.
    Domain(ScopedDescriptor& directory, unsigned fileMode, const Arena& arena, void* base, size_t size,
           uint64_t device, uint64_t inode);

    ScopedDescriptor directory_;
    unsigned fileMode_;
    Arena arena_;
    void* base_;
    size_t size_;
    uint64_t device_;
    uint64_t inode_;
};

}  // namespace linx

#endif
