// What must hold at the end of every execution.

#include <cstring>

#include "host/handles.h"
#include "host/recovery/retire.h"
#include "models/machine/scheduler.h"
#include "models/scenarios/stage.h"
#include "tests/kit/arena_order.h"

namespace model {

void Stage::check() {
    scheduler.killStopped();
    for (unsigned actor = 0; actor < names_.size(); ++actor) {
        if (handles_[actor] == nullptr || isDead(actor)) continue;
        linx::handles::endpointOf(handles_[actor])->exit();  // from the receive in which it may be asleep
        drain(actor);
    }
    checkHunts();
    checkLetters();
    as(0);
    {
        const linx::DomainLock lock(domain());
        linx::reapAllDead(lock);
    }
    checkArena(false);
    closeAll();
    checkArena(true);
}

/// Whoever still hunts is answered by the next who opens under the name: no death has lost the hunt.
void Stage::checkHunts() {
    for (unsigned whom = 0; whom < names_.size(); ++whom) {
        if (answered_[whom] == hunted_[whom] || hasEnded(hunter_[whom])) continue;
        bool isOpen = false;
        for (unsigned actor = 0; actor < names_.size(); ++actor) {
            const bool hasName = std::strcmp(names_[actor], names_[whom]) == 0;
            isOpen = isOpen || (hasName && handles_[actor] != nullptr && !isDead(actor));
        }
        as(hunter_[whom]);
        if (!isOpen) openExtra(names_[whom]);
        drain(hunter_[whom]);
        if (answered_[whom] != hunted_[whom]) scheduler.violate("a hunt is lost");
    }
}

void Stage::checkLetters() {
    for (unsigned from = 0; from < names_.size(); ++from) {
        for (unsigned to = 0; to < names_.size(); ++to) {
            const bool lost = received_[from][to] < sent_[from][to] && !hasEnded(to) && !hasEnded(via_[from][to]);
            if (lost) {
                scheduler.violate(std::string("a signal from ") + names_[from] + " to " + names_[to] + " is lost");
            }
            if (!hasEnded(from) && hasEnded(to) && noticed_[from][to] < supervised_[from][to]) {
                scheduler.violate(std::string(names_[from]) + " is not told of the end of " + names_[to]);
            }
        }
    }
}

void Stage::closeAll() {
    for (unsigned actor = 0; actor < names_.size(); ++actor) {
        if (handles_[actor] == nullptr || isDead(actor)) continue;
        as(actor);
        while (!kept_[actor].empty()) freeKept();
        closeHandle(handles_[actor]);
    }
    for (const auto& [handle, process] : extras_) {
        as(process);
        closeHandle(handle);
    }
}

/// Every word in order; and once all have ended, every block in the central lists.
void Stage::checkArena(bool all) {
    bool anyDied = scheduler.deaths() != 0;
    for (const bool killed : killed_) anyDied = anyDied || killed;
    const linx::debug::Findings seen = linxtest::lookInto(domain());
    const uint32_t leaked = seen.census.blocks - seen.census.central;
    if (all && leaked != 0) return scheduler.violate(std::to_string(leaked) + " blocks leak");
    // A death between two stores may leave a home's count of its lines wrong by a block.
    const bool isInOrder = seen.broken.empty() && (seen.smallerShares.empty() || anyDied);
    if (!isInOrder) scheduler.violate("the arena: " + seen.first());
}

}  // namespace model
