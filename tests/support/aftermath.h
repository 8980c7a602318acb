#ifndef LINXIPC_TESTS_SUPPORT_AFTERMATH_H
#define LINXIPC_TESTS_SUPPORT_AFTERMATH_H

#include <string>
#include <vector>

#include "host/recovery/retire.h"
#include "tests/support/arena_validator.h"

namespace linxtest {

/// What is left in the domain of $LINX_DOMAIN when all its processes have ended, or stand still.
struct Aftermath {
    std::vector<std::string> losses;    ///< of blocks
    uint32_t miscounts = 0;             ///< endpoints that count more lines than they are home to
    std::vector<std::string> disorder;  ///< whatever else is not as it should be
};

/// Ends who has died unnoticed, and looks. Those that live may not be at work.
inline Aftermath lookAtRest() {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    if (domain == nullptr) return {{}, 0, {"the domain cannot be joined"}};
    const linx::DomainLock lock(*domain);
    if (!lock.isHeld()) return {{}, 0, {"the arena cannot be locked"}};
    linx::reapAllDead(lock);
    ArenaValidator validator(lock);
    Aftermath found;
    found.disorder = validator.disorder();
    found.losses = validator.losses();
    found.miscounts = static_cast<uint32_t>(validator.miscounts().size());
    return found;
}

/// The same when nobody lives any more.
inline Aftermath lookAtAftermath() {
    Aftermath left = lookAtRest();
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    if (domain == nullptr) return left;
    const linx::Arena& arena = domain->arena();
    for (uint32_t i = 1; i <= arena.header().slotsUsed.loadRelaxed(); ++i) {
        const bool isOpen = (arena.slot(i).life.loadRelaxed() & linx::lifeOpen) != 0;
        if (isOpen) left.disorder.push_back("slot " + std::to_string(i) + " is still open");
    }
    return left;
}

}  // namespace linxtest

#endif
