#include "host/arena/common_stacks.h"

#include "host/arena/share.h"
#include "host/arena/slot_table.h"

namespace linx {
namespace common {

void orphan(const Arena& arena, Block& block, uint32_t sizeClass) {
    const Spid home = block.home.loadRelaxed();
    disown(block);
    // Dying before this leaves the home a share that is smaller by one block.
    if (isOpen(arena, home)) share::remove(arena.slot(indexOf(home)), home, sizeClasses[sizeClass].lines);
}

void push(const Arena& arena, Block& block, Ref ref, uint32_t sizeClass) {
    Word& head = arena.header().common[sizeClass];
    block.next.storeRelaxed(head.loadRelaxed());  // relaxed throughout: the lock orders its holders (P)
    head.storeRelaxed(ref);
    Word& lines = arena.header().commonLines;
    lines.storeRelaxed(lines.loadRelaxed() + sizeClasses[sizeClass].lines);
}

Block* take(const Arena& arena, uint32_t sizeClass, Ref& ref) {
    Word& head = arena.header().common[sizeClass];
    ref = head.loadRelaxed();
    uint32_t found;
    Block* block = arena.blockAt(ref, found);
    if (block == nullptr || found != sizeClass || !isCommon(*block)) {
        head.storeRelaxed(0);  // the end, or a stack that somebody scribbled over: the next rebuild finds its blocks
        return nullptr;
    }
    head.storeRelaxed(block->next.loadRelaxed());
    Word& lines = arena.header().commonLines;
    lines.storeRelaxed(lines.loadRelaxed() - sizeClasses[sizeClass].lines);
    return block;
}

void clear(const Arena& arena) {
    for (Word& head : arena.header().common) head.storeRelaxed(0);
    arena.header().commonLines.storeRelaxed(0);
}

void rebuild(const Arena& arena) {
    clear(arena);
    forEachBlock(arena, [&](Block& block, Ref ref, uint32_t sizeClass) {
        if (isCommon(block)) push(arena, block, ref, sizeClass);
    });
}

}  // namespace common
}  // namespace linx
