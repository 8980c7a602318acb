#include "inspect/kept.h"

#include <algorithm>

#include "inspect/signals.h"

namespace linx {
namespace inspect {
namespace {

/// Times go round: the shorter way says whether it is over.
uint64_t nanosecondsUntil(uint32_t due, uint64_t now) {
    const auto left = static_cast<int32_t>(due - dueAt(now));
    return left < 0 ? 0 : static_cast<uint64_t>(left) * nanosecondsPerDueStep;
}

}  // namespace

Kept keptSignals(const Arena& arena, uint64_t now) {
    Kept kept;
    forEachSignal(arena, [&](Where where, Spid owner, BlockRef block) {
        const uint32_t number = block->signal.number;
        if (where == Where::notice) kept.supervisions.push_back({owner, senderOf(*block), number});
        if (where != Where::timeout) return;
        kept.timeouts.push_back({owner, number, nanosecondsUntil(block->due.loadRelaxed(), now)});
    });
    std::stable_sort(kept.timeouts.begin(), kept.timeouts.end(),
                     [](const PendingTimeout& a, const PendingTimeout& b) { return a.nanoseconds < b.nanoseconds; });
    return kept;
}

}  // namespace inspect
}  // namespace linx
