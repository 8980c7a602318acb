#ifndef LINXIPC_HOST_MAILBOX_INTRODUCTION_H
#define LINXIPC_HOST_MAILBOX_INTRODUCTION_H

#include "host/arena/arena.h"

namespace linx {

/*
 * A sender may be killed after it has pushed a signal and before it has rung. So only senders that the receiver
 * watches may push: a sender introduces itself through the receiver's doorbell, and is watched from then on. When the
 * receiver stops watching a sender, for lack of descriptors, it counts a parting in its slot and then tags its
 * mailbox with the count [introduced]: a push with an older tag fails, and its sender introduces itself again.
 *
 * A receiver that can watch nobody revokes each introduction when it reads it. A sender refused a few times pushes
 * anyway, and introduces itself again with its next signal: if it is killed before it rings, its reaper rings.
 *
 * The tag has three bits. A stale push passes if its sender is delayed between reading the count and its
 * compare-and-swap while the count grows by a multiple of eight; it goes unnoticed if the sender dies then.
 */
namespace introduction {

constexpr uint32_t notYet = 0;  ///< never a count of partings: marks a sender as not introduced

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
