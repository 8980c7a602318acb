#include "host/mailbox/introduction.h"

#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"

namespace linx {
namespace introduction {
namespace {

constexpr int attempts = 64;      ///< the receiver would have to part between all of them
constexpr int introductions = 3;  ///< one that watches nobody parts after each, and may come first for ever

}  // namespace

void revoke(Slot& own) {
    uint32_t count = own.partings.loadRelaxed() + 1;
    if (count == notYet) ++count;
    // Before the tag [introduced]: whoever fails for the tag finds the count. One who finds the count first
    // introduces itself through the doorbell, which this endpoint reads after it has ceased to watch.
    own.partings.storeRelease(count);
    stack::retag(own.mailbox, tagAt(count));
}

Ref push(Slot& target, int doorbell, Spid sender, BlockRef block, uint32_t& introducedAt) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        // Before the introduction, which so was heard by whoever changes the tag from now on, or will be. And before
        // the count: beside a new tag an old count would stand for an introduction that has been revoked.
        const uint32_t tag = stack::tagOf(target.mailbox.loadSeqCst());
        const uint32_t count = target.partings.loadAcquire();  // [introduced]
        if (introducedAt != count && attempt < introductions) {
            introducedAt = doorbell != -1 && doorbell::tell(doorbell, numberOf(sender)) ? count : notYet;
        }
        const Ref before = stack::push(target.mailbox, block, tag);
        if (before != stack::retagged) return before;
    }
    return stack::closed;
}

}  // namespace introduction
}  // namespace linx
