#ifndef LINXIPC_HOST_MAILBOX_WAKE_STATE_H
#define LINXIPC_HOST_MAILBOX_WAKE_STATE_H

#include "host/arena/layout.h"

namespace linx {

/*
 * The wake state of a slot says whether a push onto its mailbox must ring the doorbell.
 *
 *   state          set by                    from         meaning                                     a push
 *   parked         the endpoint, once its    any          it may sleep, or sit in a poll loop of its  rings
 *                  doorbell is empty                      own
 *   awake          the endpoint, receiving   any          it looks at its mailbox before it sleeps    does not ring
 *                                                         or returns
 *   notifying + i  the sender in slot i      parked       i is about to ring; or it died before it    rings too
 *                  (0: a reaper)                          did, was stopped, or could not
 *   notified       that sender               its own      the doorbell has been rung                  does not ring
 *                                            notifying
 *                  the endpoint              any          it keeps its descriptor readable itself
 *
 * No wake-up is lost: a sender pushes and then reads the wake state; the endpoint stores parked and then looks at the
 * mailbox. All four are sequentially consistent, so the sender sees parked or the endpoint sees the push [wake-up].
 * Other changes of the word are read-modify-writes, which see the last state; the pipe orders the byte.
 *
 * The upper bits carry the slot's generation: a sender that was held up until another endpoint has moved into the
 * slot must not change its wake state, because the doorbell that it would ring afterwards is the old one's.
 */
enum class WakeWord : uint32_t {};

namespace wake_state {

constexpr uint32_t stateBits = 14;
constexpr uint32_t stateMask = (1u << stateBits) - 1;

constexpr uint32_t parked = 0;
constexpr uint32_t awake = 1;
constexpr uint32_t notified = 2;
constexpr uint32_t notifying = 3;  ///< plus the index of the sender's slot
static_assert(notifying + slotCount <= stateMask + 1 && stateBits + spidGenerationBits <= 32, "all states fit");

constexpr WakeWord word(Spid spid, uint32_t state) {
    return WakeWord{(generationOf(spid) << stateBits) | state};
}
constexpr uint32_t stateOf(WakeWord word) {
    return numberOf(word) & stateMask;
}

/// Whether a push must ring that finds the word `found` at the endpoint `to`.
constexpr bool wantsRing(WakeWord found, Spid to) {
    const uint32_t state = numberOf(found) - numberOf(word(to, 0));  // of another generation: no state at all
    // The two states that do not ask are adjacent; smaller values wrap round.
    return state - awake > notified - awake && state <= stateMask;
}
static_assert(parked < awake && notified == awake + 1 && notifying > notified,
              "wantsRing counts on the order of states");

/// Rings the doorbell of `to` if it asks for it, `found` being its wake state since a push. `writeDoorbell` rings it
/// and returns 0 or an errno value, which is the result. If that fails and the endpoint lives, the word keeps asking
/// the next sender to ring, and the caller has to try again.
template <class WriteDoorbell>
int ring(WordOf<WakeWord>& wakeState, WakeWord found, Spid to, SlotIndex ownIndex, WriteDoorbell writeDoorbell) {
    const WakeWord claimed = word(to, notifying + numberOf(ownIndex));
    // If this process dies or stops before the ring, later senders see the state and ring, and so does this sender's
    // reaper. If the swap fails, another sender is notifying, or the endpoint is awake; in the former case ring too,
    // as the other may have died.
    const bool claiming = found == word(to, parked) && wakeState.casSeqCst(found, claimed);
    if (!claiming && !wantsRing(found, to)) return 0;
    const int result = writeDoorbell();
    if (claiming && result == 0) {  // otherwise nothing is in the doorbell, and the next sender must ring
        WakeWord expected = claimed;
        wakeState.casSeqCst(expected, word(to, notified));  // fails when the endpoint has woken up: it decides then
    }
    return result;
}

/// After a push: rings the endpoint `to` of this slot if it asks for it, as above.
template <class WriteDoorbell>
int ringIfAsked(Slot& slot, Spid to, SlotIndex ownIndex, WriteDoorbell writeDoorbell) {
    return ring(slot.wakeState, slot.wakeState.loadSeqCst(), to, ownIndex, writeDoorbell);  // [wake-up]
}

}  // namespace wake_state
}  // namespace linx

#endif
