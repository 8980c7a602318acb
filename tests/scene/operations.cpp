#include "tests/scene/operations.h"

#include <cerrno>

#include "host/mailbox/wake_state.h"

namespace scene {

const std::vector<Operation> operations = {
    {"open", Stance::working, "1000", true, Corpse::none, nothing, openSelf},
    {"open, a hunter asleep", Stance::asleep, "0", true, Corpse::none, nothing, openSelf},
    {"open, a link", Stance::working, "1000", true, Corpse::none, nothing, openLink},
    {"open after a dead one", Stance::working, "1000", false, Corpse::atRest, nothing, openCorpse},
    {"open, mending", Stance::working, "1000", false, Corpse::holdingLock, nothing, openCorpse},
    {"hunt, answered", Stance::working, "1000", false, Corpse::none, nothing, huntMirror},
    {"hunt, pending", Stance::working, "1000", false, Corpse::none, nothing, huntNobody},
    {"hunt, told to a link", Stance::working, "1000", false, Corpse::none, nothing, huntBehindMirror},
    {"hunt, told to a sleeper", Stance::asleep, "0", false, Corpse::none, nothing, huntBehindMirror},
    {"alloc", Stance::working, "1000", false, Corpse::none, nothing, allocateSmall},
    {"alloc, many", Stance::working, "1000", false, Corpse::none, lend, allocateMany},
    {"alloc, leasing", Stance::working, "1000", false, Corpse::none, nothing, allocateLarge},
    {"alloc, reclaiming", Stance::working, "1000", false, Corpse::none, cutArena, allocateLarge},
    {"alloc, leasing again", Stance::working, "1000", false, Corpse::none, soilArena, allocateSmall},
    {"send, receiver asleep", Stance::away, "0", false, Corpse::none, holdOneForSleeper, sendToMirror},
    {"send, supervisor asleep", Stance::asleep, "0", false, Corpse::none, holdOneUntil<linx::wake_state::parked>,
     sendToConductor},
    {"send, receiver looking", Stance::working, "1000", false, Corpse::none, holdOneUntil<linx::wake_state::awake>,
     sendToConductor},
    {"send, receiver busy", Stance::away, "1000", false, Corpse::none, holdOneUntil<linx::wake_state::notified>,
     sendToConductor},
    {"send to a dead one", Stance::working, "1000", false, Corpse::atRest, holdOne, sendToCorpse, ECONNRESET},
    {"send, captured", Stance::working, "1000", false, Corpse::none, holdOne, sendToMirror, 0, Capture::running},
    {"send, captured by a dead one", Stance::asleep, "0", false, Corpse::none, holdOne, sendToMirror, 0,
     Capture::abandoned},
    {"receive", Stance::working, "1000", false, Corpse::none, nothing, receiveAny},
    {"receive, in vain", Stance::working, "0", false, Corpse::none, emptyQueue, receiveAny},
    {"pass on", Stance::working, "1000", false, Corpse::none, holdForeign, sendToMirror},
    {"free at home", Stance::working, "1000", false, Corpse::none, holdOne, freeAll},
    {"free at home, too much", Stance::working, "1000", false, Corpse::none, holdLarge, freeAll},
    {"free away", Stance::working, "1000", false, Corpse::none, holdForeign, freeAll},
    {"attach", Stance::working, "1000", false, Corpse::none, holdOne, attachMirror},
    {"attach to a dead one", Stance::working, "1000", false, Corpse::atRest, holdOne, attachCorpse},
    {"time-out", Stance::working, "1000", false, Corpse::none, nothing, askTimeout},
    {"time-out, received", Stance::working, "1000", false, Corpse::none, haveDueTimeout, receiveAny},
    {"cancel", Stance::working, "1000", false, Corpse::none, haveTimeout, cancelTimeout},
    {"close", Stance::working, "1000", false, Corpse::none, haveMuch, close},
    {"close, supervisor asleep", Stance::asleep, "0", false, Corpse::none, haveMuch, close},
};

}  // namespace scene
