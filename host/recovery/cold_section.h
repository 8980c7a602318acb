#ifndef LINXIPC_HOST_RECOVERY_COLD_SECTION_H
#define LINXIPC_HOST_RECOVERY_COLD_SECTION_H

#include "host/arena/domain.h"

namespace linx {

/// Holds the cold lock of a domain while it lives: open, close, hunting an absent name, leasing memory and reaping
/// are done one at a time among all processes. The kernel lets go of it when the holder dies; whoever comes next then
/// finds the header's busy word set and repairs what was left half done.
///
/// A holder that is stopped delays all who wait for the lock, so sending and receiving only try it, and do without.
/// Sections of one thread must not nest.
class ColdSection {
public:
    using Patience = FileLock::Patience;

    explicit ColdSection(const Domain& domain, Patience patience = Patience::wait);
    ~ColdSection();
    ColdSection(const ColdSection&) = delete;
    ColdSection& operator=(const ColdSection&) = delete;

    /// False when the lock could not be had; `errno` tells why.
    bool entered() const { return entered_; }

    const Domain& domain() const { return domain_; }
    const Arena& arena() const { return domain_.arena(); }

private:
    const Domain& domain_;
    const bool entered_;
};

}  // namespace linx

#endif
