#ifndef LINXIPC_HOST_MAILBOX_ATTENTION_H
#define LINXIPC_HOST_MAILBOX_ATTENTION_H

#include "host/arena/layout.h"

namespace linx {

/*
 * The attention word of a slot says whether a push onto its mailbox must ring the bell.
 *
 *   value            set by                     meaning                                             a push
 *   quiet            the endpoint, once it      it may be asleep, or in a poll loop of its own      rings
 *                    has emptied the bell
 *   looking          the endpoint in a receive  it looks at the mailbox before it sleeps or returns does not ring
 *   rung             whoever rang               the bell has been rung                              does not ring
 *   ringing + i      the sender in slot i       i is about to ring; or it died before it did, was   rings too
 *                    (0: a reaper)              stopped, or could not
 *
 * No wake-up is lost: a sender pushes (A) and then reads the attention word (B); the endpoint stores quiet (C) and
 * then looks at the mailbox (D). All four are sequentially consistent, so B sees quiet or D sees the push. The other
 * changes of the word are read-modify-writes, which see the last state; the byte goes with the pipe.
 *
 * The upper bits carry the slot's generation: a sender that was held up until another endpoint has moved into the
 * slot must not change its attention word, because the bell that it would ring afterwards is the old one's.
 */
namespace attention {

constexpr uint32_t stateBits = 14;
constexpr uint32_t stateMask = (1u << stateBits) - 1;

constexpr uint32_t quiet = 0;
constexpr uint32_t looking = 1;
constexpr uint32_t rung = 2;
constexpr uint32_t ringing = 3;  ///< plus the index of the sender's slot
static_assert(ringing + slotCount <= stateMask + 1 && stateBits + spidGenerationBits <= 32, "all states fit");

constexpr uint32_t word(Spid spid, uint32_t state) {
    return (generationOf(spid) << stateBits) | state;
}
constexpr uint32_t stateOf(uint32_t word) {
    return word & stateMask;
}

/// Whether a push must ring that finds the word `found` at the endpoint `to`.
constexpr bool asksForRing(uint32_t found, Spid to) {
    const uint32_t state = found - word(to, 0);  // of another generation: no state at all
    // The two that do not ask lie side by side; what comes before them wraps round.
    return state - looking > rung - looking && state <= stateMask;
}
static_assert(quiet < looking && rung == looking + 1 && ringing > rung, "asksForRing counts on the order of states");

/// Rings the bell of `to` after a push, `found` being its attention word since then. `writeBell` rings the bell and
/// returns 0 or an errno value, which is the result. If it fails and the endpoint lives, nobody may sleep over that:
/// the word goes on asking the next sender to ring, and the caller has to try again.
template <class WriteBell>
int ring(Word& attention, uint32_t found, Spid to, uint32_t ownIndex, WriteBell writeBell) {
    const uint32_t announced = word(to, ringing + ownIndex);
    // Dying or stopping after this exchange and before it rings: every later sender sees the state and rings, and the
    // reaper of this sender rings. Losing the exchange: somebody else announced, or the endpoint looks; ring in the
    // former case too, for the other may have died.
    const bool announcing = found == word(to, quiet) && attention.casSeqCst(found, announced);
    if (!announcing && !asksForRing(found, to)) return 0;
    const int result = writeBell();
    if (announcing && result == 0) {  // otherwise nothing is in the bell, and the next sender must ring
        uint32_t expected = announced;
        attention.casSeqCst(expected, word(to, rung));  // fails when the endpoint has begun to look: it decides then
    }
    return result;
}

}  // namespace attention
}  // namespace linx

#endif
