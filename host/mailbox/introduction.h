#ifndef LINXIPC_HOST_MAILBOX_INTRODUCTION_H
#define LINXIPC_HOST_MAILBOX_INTRODUCTION_H

#include "host/arena/arena.h"

namespace linx {

/*
 * A sender may be killed after it has pushed a signal and before it has rung. So nobody pushes whom the receiver does
 * not watch: a sender introduces itself through the receiver's doorbell, and the receiver watches it from then on.
 * Should the receiver cease to watch somebody, for want of descriptors, it counts a parting in its slot and then tags
 * its mailbox with the count [introduced]: a push with an older tag fails, and its sender introduces itself again.
 *
 * One that can watch nobody at all revokes what it cannot keep as soon as it is told. Who is refused so a few times
 * pushes nevertheless, and introduces itself again with its next signal: should it be killed before it rings, its
 * reaper does.
 *
 * The tag has three bits. A push could be taken in by it if its sender were held up between its look at the count and
 * its compare-and-swap while the receiver parts eight times, or a multiple of that, and were killed right behind it.
 */
namespace introduction {

constexpr uint32_t notYet = 0;  ///< no count of partings: a sender introduced at this one is not introduced

/// The tag of the mailbox of an endpoint that has parted so often.
constexpr uint32_t tagAt(uint32_t partings) {
    return partings << refBits;
}

/// Has everybody introduce itself again. To be called before the endpoint ceases to watch somebody, and when it may
/// have missed an introduction.
void revoke(Slot& own);

/// Introduces `sender` to the endpoint of `target`, whose doorbell is open (-1: it has none any more), unless that
/// was done at the present count, `introducedAt`; and pushes the block as stack::push does. Returns the same, but not
/// `retagged`.
Ref push(Slot& target, int doorbell, Spid sender, BlockRef block, uint32_t& introducedAt);

}  // namespace introduction
}  // namespace linx

#endif
