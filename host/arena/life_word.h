#ifndef LINXIPC_HOST_ARENA_LIFE_WORD_H
#define LINXIPC_HOST_ARENA_LIFE_WORD_H

#include "host/arena/spid.h"

namespace linx {

/*
 * Whose a slot is. Everybody reads it; it changes under the domain lock.
 *
 *   never used    there may not even be memory for it
 *   closed as E   E has ended, or is being opened and nobody can find it yet
 *   open as E     E is open
 *
 *   from           to             by whom
 *   never used     closed as E    the opener of E, which takes the slot; and back if opening fails
 *   closed as D    closed as E    the same, D being the slot's last user
 *   closed as E    open as E      the opener of E; or the repair, if that died half-way [opened]
 *   open as E      closed as E    E, which closes; or a reaper [ended]
 */
enum class LifeWord : uint32_t { neverUsed = 0 };

constexpr uint32_t lifeOpen = 1u << 31;

constexpr LifeWord closedAs(Spid spid) {
    return LifeWord{numberOf(spid)};
}
constexpr LifeWord openAs(Spid spid) {
    return LifeWord{numberOf(spid) | lifeOpen};
}

/// None of one that was never used.
constexpr Spid spidOf(LifeWord life) {
    return Spid{numberOf(life) & spidMask};
}
constexpr bool isOpen(LifeWord life) {
    return (numberOf(life) & lifeOpen) != 0;
}

}  // namespace linx

#endif
