#include "inspect/accounts.h"

#include "inspect/signals.h"

namespace linx {
namespace inspect {

std::vector<Account> accountsOf(const Arena& arena) {
    std::vector<Account> accounts(slotCount);
    forEachSignal(arena, [&](Where where, Spid owner, BlockRef block) {
        Account& account = accounts[numberOf(indexOf(owner))];
        if (where == Where::held) account.held.add(block);
        if (where == Where::queued) account.queued.add(block);
    });
    forEachBlock(arena, [&](BlockRef block) {
        const Spid home = block->home.loadRelaxed();
        if (block->owner.loadRelaxed() != OwnerWord::free && isOpen(arena, home)) {
            accounts[numberOf(indexOf(home))].lent.add(block);
        }
    });
    return accounts;
}

}  // namespace inspect
}  // namespace linx
