#ifndef LINXIPC_TESTS_KIT_ARENA_ORDER_H
#define LINXIPC_TESTS_KIT_ARENA_ORDER_H

#include <string>

#include "host/debug/validate.h"
#include "host/recovery/retire.h"
#include "tests/kit/in_time.h"

namespace linxtest {

using linx::debug::Findings;
using linx::debug::Grade;

inline Findings lookUnder(const linx::DomainLock& lock, Grade grade) {
    if (lock.isHeld()) return linx::debug::validate(lock.arena(), grade);
    Findings none;
    none.broken = "the arena cannot be locked";
    return none;
}

/// What a full look finds in the domain's arena, while nobody is at work in it.
inline Findings lookInto(const linx::Domain& domain) {
    return lookUnder(linx::DomainLock(domain), Grade::full);
}

/// The first thing that is wrong with the domain's arena; empty when all is well.
inline std::string brokenInvariant(const linx::Domain& domain) {
    return lookInto(domain).first();
}

/// Looks at the domain of $LINX_DOMAIN once whoever has died unnoticed is ended. Those that live may not be at work,
/// or the look is to be quick.
inline Findings lookAtRest(Grade grade = Grade::full) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    if (domain == nullptr) {
        Findings none;
        none.broken = "the domain cannot be joined";
        return none;
    }
    const linx::DomainLock lock(*domain);
    if (lock.isHeld()) linx::reapAllDead(lock);
    return lookUnder(lock, grade);
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
    constexpr uint32_t longest = 5000;
    Findings found;
    const bool isInOrder = comesTrue(
        [&] {
            found = lookAtRest();
            return found.broken.empty() && found.smallerShares.size() <= deaths;
        },
        longest);
    return isInOrder ? std::string() : found.first();
}

}  // namespace linxtest

#endif
