#ifndef LINXIPC_TESTS_KIT_DELIVER_H
#define LINXIPC_TESTS_KIT_DELIVER_H

#include "host/mailbox/take_all_stack.h"

namespace linxtest {

/// Pushes a block onto the mailbox of a slot as a sender does whom its endpoint watches. False when that is closed.
inline bool deliver(linx::Slot& slot, linx::BlockRef block) {
    const uint32_t tag = linx::stack::tagOf(slot.mailbox.loadSeqCst());
    return !linx::stack::isRefused(linx::stack::push(slot.mailbox, block, tag));
}

}  // namespace linxtest

#endif
