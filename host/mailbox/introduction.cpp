#include "host/mailbox/introduction.h"

#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"

namespace linx {
namespace introduction {
namespace {

constexpr int attempts = 64;      ///< fail only if the receiver parts between all of them
constexpr int introductions = 3;  ///< one that watches nobody revokes each, perhaps before every push

}  // namespace

void revoke(Slot& own) {
    uint32_t count = own.partings.loadRelaxed() + 1;
    if (count == notYet) ++count;
    // Before the tag [introduced]: a sender refused by the tag sees the count. One that sees the count first
    // introduces itself by the doorbell, which this endpoint reads after it stops watching.
    own.partings.storeRelease(count);
    stack::retag(own.mailbox, tagAt(count));
}

Ref push(Slot& target, int doorbell, Spid sender, BlockRef block, uint32_t& introducedAt) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        // Before the introduction: so a receiver that changes the tag later has read the introduction, or will. And
        // before the count: with a new tag, an old count would pass off a revoked introduction as valid.
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
