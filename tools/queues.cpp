#include "tools/queues.h"

#include "inspect/signals.h"
#include "tools/look.h"
#include "tools/text.h"

namespace tools {

using linx::inspect::Where;

std::map<linx::Spid, Piles> queuesOf(const linx::Arena& arena) {
    std::map<linx::Spid, Piles> queues;
    linx::inspect::forEachSignal(arena, [&](Where where, linx::Spid owner, linx::BlockRef block) {
        if (where != Where::queued) return;
        Pile& pile = queues[owner][block->signal.number];
        pile.amount.add(block);
        ++pile.senders[nameIn(arena, senderOf(*block))];
    });
    return queues;
}

std::string sendersOf(const Pile& pile) {
    constexpr size_t most = 4;
    std::string text;
    size_t named = 0;
    for (const auto& [name, signals] : pile.senders) {
        if (named++ == most) return text + " and " + std::to_string(pile.senders.size() - most) + " more";
        text += (text.empty() ? "" : ", ") + printable(name) + " " + std::to_string(signals);
    }
    return text;
}

}  // namespace tools
