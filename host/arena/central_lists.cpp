#include "host/arena/central_lists.h"

#include <algorithm>

#include "host/arena/share.h"
#include "host/arena/slot_table.h"

namespace linx {
namespace central {

void abandon(const Arena& arena, Block& block, uint32_t sizeClass) {
    const Spid home = block.home.loadRelaxed();
    disown(block);
    // Dying before this leaves the home a share that is smaller by one block.
    if (isOpen(arena, home)) share::remove(arena.slot(indexOf(home)), home, sizeClasses[sizeClass].lines);
}

void push(const Arena& arena, Block& block, Ref ref, uint32_t sizeClass) {
    Word& head = arena.header().central[sizeClass];
    block.next.storeRelaxed(head.loadRelaxed());  // relaxed throughout: the lock orders its holders (P)
    head.storeRelaxed(ref);
    Word& lines = arena.header().centralLines;
    lines.storeRelaxed(lines.loadRelaxed() + sizeClasses[sizeClass].lines);
}

Block* pop(const Arena& arena, uint32_t sizeClass, Ref& ref) {
    Word& head = arena.header().central[sizeClass];
    ref = head.loadRelaxed();
    uint32_t found;
    Block* block = arena.blockAt(ref, found);
    if (block == nullptr || found != sizeClass || !isHomeless(*block)) {
        head.storeRelaxed(0);  // the end, or a list that somebody scribbled over: the next rebuild finds its blocks
        return nullptr;
    }
    head.storeRelaxed(block->next.loadRelaxed());
    Word& lines = arena.header().centralLines;
    lines.storeRelaxed(lines.loadRelaxed() - sizeClasses[sizeClass].lines);
    Word& least = arena.header().centralLeast;
    least.storeRelaxed(std::min(least.loadRelaxed(), lines.loadRelaxed()));
    return block;
}

void clear(const Arena& arena) {
    for (Word& head : arena.header().central) head.storeRelaxed(0);
    arena.header().centralLines.storeRelaxed(0);
}

void rebuild(const Arena& arena) {
    clear(arena);
    forEachBlock(arena, [&](Block& block, Ref ref, uint32_t sizeClass) {
        if (isHomeless(block)) push(arena, block, ref, sizeClass);
    });
}

}  // namespace central
}  // namespace linx
