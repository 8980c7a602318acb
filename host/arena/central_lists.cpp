#include "host/arena/central_lists.h"

#include <algorithm>

#include "host/arena/share.h"
#include "host/arena/slot_table.h"

namespace linx {
namespace central {

void abandon(const Arena& arena, BlockRef block) {
    const Spid home = block->home.loadRelaxed();
    disown(*block);
    // Dying before this leaves the home a share that is smaller by one block.
    if (isOpen(arena, home)) share::remove(arena.slot(indexOf(home)), home, sizeClasses[block.sizeClass].lines);
}

void push(const Arena& arena, BlockRef block) {
    WordOf<Ref>& head = arena.header().central[block.sizeClass];
    block->next.storeRelaxed(head.loadRelaxed());  // relaxed throughout: the lock orders its holders [lock]
    head.storeRelaxed(block.ref);
    Word& lines = arena.header().centralLines;
    lines.storeRelaxed(lines.loadRelaxed() + sizeClasses[block.sizeClass].lines);
}

BlockRef pop(const Arena& arena, SizeClassId sizeClass) {
    WordOf<Ref>& head = arena.header().central[sizeClass];
    const BlockRef block = arena.blockAt(head.loadRelaxed());
    if (!block || block.sizeClass != sizeClass || !isHomeless(*block)) {
        // The end, or a list that somebody scribbled over: the next rebuild finds its blocks.
        head.storeRelaxed(Ref::none);
        return {};
    }
    head.storeRelaxed(block->next.loadRelaxed());
    Word& lines = arena.header().centralLines;
    lines.storeRelaxed(lines.loadRelaxed() - sizeClasses[sizeClass].lines);
    Word& least = arena.header().centralLeast;
    least.storeRelaxed(std::min(least.loadRelaxed(), lines.loadRelaxed()));
    return block;
}

void clear(const Arena& arena) {
    for (WordOf<Ref>& head : arena.header().central) head.storeRelaxed(Ref::none);
    arena.header().centralLines.storeRelaxed(0);
}

void rebuild(const Arena& arena) {
    clear(arena);
    forEachBlock(arena, [&](BlockRef block) {
        if (isHomeless(*block)) push(arena, block);
    });
}

}  // namespace central
}  // namespace linx
