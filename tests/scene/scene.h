#ifndef LINXIPC_TESTS_SCENE_SCENE_H
#define LINXIPC_TESTS_SCENE_SCENE_H

#include <atomic>

#include "tests/kit/line.h"
#include "tests/kit/shared.h"
#include "tests/kit/signals.h"

/// What happens around an operation in which something befalls its process, the victim: two bystanders are at work,
/// and say afterwards whether they took notice.
namespace scene {

// Signal numbers.
constexpr uint32_t item = 100;    ///< between the bystanders, numbered, and back
constexpr uint32_t end = 101;     ///< the same, the last
constexpr uint32_t gift = 102;    ///< from a bystander to the victim
constexpr uint32_t parcel = 103;  ///< from the victim to a bystander
constexpr uint32_t found = 104;   ///< answers the hunt for the victim
constexpr uint32_t notice = 105;
constexpr uint32_t echo = 106;  ///< from the victim to the second bystander, and back
constexpr uint32_t ask = 107;   ///< asks the first bystander for gifts
constexpr uint32_t wake = 108;  ///< the same, to be given when the victim has slept more often than it says

constexpr char victimName[] = "victim";
constexpr char behindVictim[] = "victim/nobody";  ///< hunted for by the first bystander
constexpr uint32_t gifts = 3;                     ///< that the victim gets at first, and each time that it asks

/// What the first bystander does while the victim acts.
enum class Stance {
    working,  ///< exchanges signals with the second one, without pause
    asleep,   ///< sleeps in a receive until something comes
    away      ///< does not look, a signal waits for it
};

/// What the processes of one attempt share.
struct Progress {
    Count exchanged;  ///< signals that went to and fro between the bystanders
    Count parcels;    ///< that they have received
    Count notices;    ///< of the victim's end
    std::atomic<bool> victimActed;
    std::atomic<bool> victimEnded;
};

/// The first bystander: tells its spid. `victimIsOpen`: there is a victim when it is told so, before the victim acts.
/// It says when the victim's end has been dealt with; from then on both stand still until it is told to finish.
void conduct(Progress& progress, Stance stance, bool victimIsOpen, Line& parent);

/// The second bystander: tells its spid, and sends back what it gets to be sent back. It never begins to talk to the
/// victim.
void mirror(Progress& progress, Line& parent);

}  // namespace scene

#endif
