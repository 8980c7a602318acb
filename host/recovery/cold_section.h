#ifndef LINXIPC_HOST_RECOVERY_COLD_SECTION_H
#define LINXIPC_HOST_RECOVERY_COLD_SECTION_H

#include "host/arena/domain.h"

namespace linx {

/// Holds the cold lock of a domain while it lives: open, close, hunting an absent name, leasing memory and reaping
/// are done one at a time among all processes. The kernel lets go of it when the holder dies; whoever comes next then
/// finds the header's busy word set and repairs what was left half done.
///
/// Sections of one thread must not nest.
class ColdSection {
public:
    explicit ColdSection(const Domain& domain);
    ~ColdSection();
    ColdSection(const ColdSection&) = delete;
    ColdSection& operator=(const ColdSection&) = delete;

    /// False when the lock could not be had; `errno` tells why.
    bool entered() const { return entered_; }

    const Domain& domain() const { return domain_; }
    const Arena& arena() const { return domain_.arena(); }
    int file() const { return file_.get(); }

private:
    /// One at a time among the threads of this process. A member, so that it is let go however the section ends.
    struct Threads {
        Threads();
        ~Threads();
    };

    const Domain& domain_;
    const Threads threads_;
    ScopedDescriptor file_;
    bool entered_ = false;
};

/// How often this process has been through a fork, on either side.
uint32_t forkCount();

/// How many forks this process is away from the first: differs between a process and its parent.
uint32_t processGeneration();

}  // namespace linx

#endif
