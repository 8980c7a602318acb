#ifndef LINXIPC_TESTS_SUPPORT_AFTERMATH_H
#define LINXIPC_TESTS_SUPPORT_AFTERMATH_H

#include <sched.h>

#include <chrono>
#include <string>

#include "host/debug/validate.h"
#include "host/recovery/retire.h"

namespace linxtest {

using linx::debug::Findings;
using linx::debug::Grade;

/// Looks at the domain of $LINX_DOMAIN once whoever has died unnoticed is ended. Those that live may not be at work,
/// or the look is to be quick.
inline Findings lookAtRest(Grade grade = Grade::full) {
    Findings none;
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    none.broken = "the domain cannot be joined";
    if (domain == nullptr) return none;
    const linx::DomainLock lock(*domain);
    none.broken = "the arena cannot be locked";
    if (!lock.isHeld()) return none;
    linx::reapAllDead(lock);
    return linx::debug::validate(domain->arena(), grade);
}

/// The same when nobody lives any more.
inline Findings lookAtAftermath() {
    Findings left = lookAtRest();
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    if (domain == nullptr || !left.broken.empty()) return left;
    const uint32_t open = domain->arena().header().openEndpoints.loadRelaxed();
    if (open != 0) left.broken = std::to_string(open) + " endpoints are still open";
    return left;
}

/// What is not in order, or nothing, while nobody is at work but to take its last mail, and to give up memory that
/// somebody has asked for. As many deaths may each have left one home a smaller share.
inline std::string brokenAtRest(size_t deaths) {
    const Findings guarded = lookAtRest(Grade::quick);
    if (!guarded.broken.empty()) return guarded.broken;
    constexpr std::chrono::seconds longest(5);
    const auto limit = std::chrono::steady_clock::now() + longest;
    for (;;) {
        const Findings found = lookAtRest();
        const bool isInOrder = found.broken.empty() && found.smallerShares.size() <= deaths;
        if (isInOrder) return {};
        if (std::chrono::steady_clock::now() > limit) return found.first();
        sched_yield();
    }
}

}  // namespace linxtest

#endif
