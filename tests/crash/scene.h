#ifndef LINXIPC_TESTS_CRASH_SCENE_H
#define LINXIPC_TESTS_CRASH_SCENE_H

#include <atomic>

#include "tests/processes/support/shared.h"
#include "tests/processes/support/signals.h"

namespace crash {

// Signal numbers.
constexpr uint32_t item = 100;    ///< between the bystanders, numbered, and back
constexpr uint32_t end = 101;     ///< the same, the last
constexpr uint32_t gift = 102;    ///< from a bystander to the victim
constexpr uint32_t parcel = 103;  ///< from the victim to a bystander
constexpr uint32_t found = 104;   ///< answers the hunt for the victim
constexpr uint32_t notice = 105;

constexpr char victimName[] = "victim";
constexpr uint32_t gifts = 3;

/// What the first bystander does while the victim acts.
enum class Stance {
    working,  ///< exchanges signals with the second one, without pause
    asleep,   ///< sleeps in a receive until something comes
    away      ///< does not look, a signal waits for it
};

/// What the processes of one attempt share.
struct Progress {
    Count ended;      ///< 1 when the victim is about to be killed or stopped
    Count exchanged;  ///< signals that went to and fro between the bystanders
    std::atomic<bool> victimEnded;
};

/// The first bystander. `victimIsOpen`: there is a victim when it is told so, before the victim acts.
void conduct(Progress& progress, Stance stance, bool victimIsOpen, Line& parent);

/// The second bystander: tells its spid, and sends back what it gets from the first. It never talks to the victim.
void mirror(Line& parent);

}  // namespace crash

#endif
