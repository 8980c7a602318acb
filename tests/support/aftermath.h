#ifndef LINXIPC_TESTS_SUPPORT_AFTERMATH_H
#define LINXIPC_TESTS_SUPPORT_AFTERMATH_H

#include <string>
#include <vector>

#include "host/recovery/retire.h"
#include "tests/support/arena_validator.h"

namespace linxtest {

/// What is left in the domain of $LINX_DOMAIN when all its processes have ended.
struct Aftermath {
    uint32_t leakedBlocks = 0;
    std::vector<std::string> disorder;  ///< whatever else is not as it should be
};

/// Ends who has died unnoticed, and looks.
inline Aftermath lookAtAftermath() {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    if (domain == nullptr) return {0, {"the domain cannot be joined"}};
    const linx::ColdSection cold(*domain);
    if (!cold.entered()) return {0, {"the arena cannot be locked"}};
    linx::reapAllDead(cold);
    const linx::Arena& arena = domain->arena();
    Aftermath left;
    left.disorder = ArenaValidator(cold).disorder();
    linx::forEachBlock(arena, [&](const linx::Block& block, linx::Ref, uint32_t) {
        if (!linx::common::isCommon(block)) ++left.leakedBlocks;
    });
    for (uint32_t i = 1; i <= arena.header().slotsUsed.loadRelaxed(); ++i) {
        const bool isOpen = (arena.slot(i).life.loadRelaxed() & linx::lifeOpen) != 0;
        if (isOpen) left.disorder.push_back("slot " + std::to_string(i) + " is still open");
    }
    return left;
}

}  // namespace linxtest

#endif
