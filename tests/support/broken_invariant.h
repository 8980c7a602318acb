#ifndef LINXIPC_TESTS_SUPPORT_BROKEN_INVARIANT_H
#define LINXIPC_TESTS_SUPPORT_BROKEN_INVARIANT_H

#include <string>

#include "host/debug/validate.h"
#include "host/recovery/domain_lock.h"

namespace linxtest {

/// What a full look finds in the domain's arena, while nobody is at work in it.
inline linx::debug::Findings lookInto(const linx::Domain& domain) {
    linx::debug::Findings findings;
    const linx::DomainLock lock(domain);
    if (lock.isHeld()) return linx::debug::validate(domain.arena(), linx::debug::Grade::full);
    findings.broken = "the arena cannot be locked";
    return findings;
}

/// The first thing that is wrong with the domain's arena; empty when all is well.
inline std::string brokenInvariant(const linx::Domain& domain) {
    return lookInto(domain).first();
}

}  // namespace linxtest

#endif
