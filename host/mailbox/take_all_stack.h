#ifndef LINXIPC_HOST_MAILBOX_TAKE_ALL_STACK_H
#define LINXIPC_HOST_MAILBOX_TAKE_ALL_STACK_H

#include <cassert>

#include "host/arena/arena.h"

namespace linx {

/*
 * A stack of blocks that anybody pushes onto and one endpoint takes as a whole: its mailbox, and its returned stack.
 * The head is empty, closed, or the block pushed last; blocks are linked through `next`. Pushing and taking
 * everything leave no room for the ABA problem: a head that is found again is the same chain again.
 *
 * A taker claims the chain: the chain's head stands in a word beside the stack before the stack is emptied, and stays
 * there until every block of the chain has got its next owner. If the taker dies in between, its reaper finds the
 * chain.
 *
 * The upper bits of a head carry a tag, which its owner may change and which a push has to know: so a push can depend
 * on what the owner has said before ([introduced], see introduction.h). Where nothing is to be said the tag is 0.
 */
enum class StackHead : uint32_t {};

namespace stack {

constexpr Ref empty = Ref::none;
constexpr Ref closed{1};    // lines 1 and 2 lie in the header, so no block has these references
constexpr Ref retagged{2};  // the answer to a push; no head

constexpr uint32_t refMask = (1u << refBits) - 1;

constexpr StackHead headOf(Ref ref, uint32_t tag = 0) {
    return StackHead{numberOf(ref) | tag};
}
constexpr uint32_t tagOf(StackHead head) {
    return numberOf(head) & ~refMask;
}
constexpr Ref refOf(StackHead head) {
    return Ref{numberOf(head) & refMask};
}
/// Whether a stack with this head holds blocks.
constexpr bool holdsBlocks(StackHead head) {
    return refOf(head) > closed;
}

/// Whether a push that returned `before` has failed.
constexpr bool isRefused(Ref before) {
    return numberOf(before) - numberOf(closed) <= numberOf(retagged) - numberOf(closed);
}

/// Pushes a block that belongs to the caller, with its next owner already written. Returns the previous head without
/// its tag. On failure the block stays the caller's: `closed` if the stack is closed, `retagged` if its tag is not
/// `tag`.
[[gnu::always_inline]] inline Ref push(WordOf<StackHead>& head, BlockRef block, uint32_t tag = 0) {
    const StackHead pushed = headOf(block.ref, tag);
    assert(block.ref > retagged && refOf(pushed) == block.ref && tagOf(pushed) == tag);
    StackHead found = head.loadRelaxed();  // relaxed: only a guess, the compare-and-swap below checks it
    Ref seen;
    do {
        seen = Ref{numberOf(found) ^ tag};
        if (seen == closed) return closed;
        if (numberOf(seen) > refMask) return retagged;
        // Release [link]: pairs with walk(). The taker would be served by the compare-and-swap that follows.
        block->next.storeRelease(seen);
        // Release [pushed]: pairs with claimAll; the taker reads the block's contents after the head, and those of
        // the blocks below, since all that changes the head is a read-modify-write. Sequentially consistent: the
        // pusher's next look at the wake state must not come before it, see wake_state.h [wake-up]. Dying before: the
        // block stays the caller's, named by its slot's `sending`. After: it has been sent.
    } while (!head.casSeqCst(found, pushed));
    return seen;
}

/// Claims the whole chain and takes it off the stack, leaving `leave` (empty or closed) behind. Returns its last
/// block, or `empty`. Once every block of the chain has its next owner, the claim is to be released.
inline Ref claimAll(WordOf<StackHead>& head, WordOf<Ref>& claim, Ref leave) {
    assert(leave == empty || leave == closed);
    StackHead found = head.loadRelaxed();  // relaxed: as in push
    for (Ref seen = refOf(found); seen != closed && (seen != empty || leave == closed); seen = refOf(found)) {
        // The compare-and-swap below is a release, so nobody sees the stack emptied without the claim [taken].
        // Release [claim]: as the 0 it may overwrite. A death before the swap leaves the chain claimed and in the
        // stack; the reaper goes by the owner words and counts no block twice.
        claim.storeRelease(seen);
        if (head.casSeqCst(found, headOf(leave, tagOf(found)))) return seen;  // acquire: [pushed]
    }
    claim.storeRelease(Ref::none);  // somebody else emptied the stack: what was claimed is not this taker's; [claim]
    return empty;
}

/// Gives the stack another tag, whatever is in it: from now on only those push who know it.
inline void retag(WordOf<StackHead>& head, uint32_t tag) {
    StackHead found = head.loadRelaxed();  // relaxed: as in push
    // Sequentially consistent, as every change of a head: what the owner finds in the stack next was pushed before,
    // or with this tag [introduced].
    while (!head.casSeqCst(found, headOf(refOf(found), tag))) {
    }
}

/// Calls `visit(block)` for every block of a chain, newest first, until it returns false. Stops at what is not a
/// block, and soon after entering a cycle: garbled links shorten the walk, or have it visit some blocks a few times,
/// nothing more. Cycles are found by laps of doubling length that end where they began: the number of blocks alone is
/// too loose a bound for walks made for each block of another.
template <class Visit>
void walkWhile(const Arena& arena, Ref ref, Visit visit) {
    NearbyBlocks blocks(arena);
    for (uint32_t lap = 64; lap / 2 < arena.maxBlocks(); lap *= 2) {
        const Ref start = ref;
        for (uint32_t left = lap; left != 0; --left) {
            const BlockRef block = blocks.at(ref);
            if (!block) return;
            // Before `visit` changes it. Acquire [link]: for holds(); a taker that walks its own chain has it from
            // the head.
            const Ref next = block->next.loadAcquire();
            if (!visit(block) || next == start) return;
            ref = next;
        }
    }
}

/// The same for all of them.
template <class Visit>
void walk(const Arena& arena, Ref ref, Visit visit) {
    walkWhile(arena, ref, [&](BlockRef block) {
        visit(block);
        return true;
    });
}

/// Gives up a claim: every block of the chain has its next owner, as is seen by whoever finds the claim gone [claim].
inline void release(WordOf<Ref>& claim) {
    claim.storeRelease(Ref::none);
}

/// Takes the whole chain, leaving `leave` behind: `visit(block)`, which must not throw, gives each its next owner.
/// Returns the last block, or `empty`.
template <class Visit>
Ref takeAll(const Arena& arena, WordOf<StackHead>& head, WordOf<Ref>& claim, Ref leave, Visit visit) {
    const Ref chain = claimAll(head, claim, leave);
    walk(arena, chain, visit);
    release(claim);
    return chain;
}

/// Whether `wanted` lies in the stack or in the chain being taken from it. REQUIRES that no push of it is to come. If
/// a taker is at work the answer may be a wrong no, but the block's owner has changed by then: check it after this
/// call.
inline bool holds(const Arena& arena, const WordOf<StackHead>& head, const WordOf<Ref>& claim, Ref wanted) {
    bool found = false;
    const auto compare = [&](BlockRef block) { found = found || block.ref == wanted; };
    // Head first: a chain taken after this load was claimed before it left the head. Acquires would do, [taken] and
    // then [claim]; this is cold.
    walk(arena, refOf(head.loadSeqCst()), compare);
    if (!found) walk(arena, claim.loadSeqCst(), compare);
    return found;
}

}  // namespace stack
}  // namespace linx

#endif
