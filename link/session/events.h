#ifndef LINXIPC_LINK_SESSION_EVENTS_H
#define LINXIPC_LINK_SESSION_EVENTS_H

#include <chrono>
#include <variant>

#include "link/session/messages.h"

namespace linx::link {

/// What the caller's monotonic clock shows. The session has no clock of its own.
using Time = std::chrono::microseconds;

/// An endpoint of this node, as the far side knows it; and one of the far side, as it is known here. Neither number
/// is given twice in a session: each stands for one incarnation of one endpoint.
enum class OwnId : uint32_t {};
enum class FarId : uint32_t {};

constexpr uint32_t numberOf(OwnId id) {
    return static_cast<uint32_t>(id);
}
constexpr uint32_t numberOf(FarId id) {
    return static_cast<uint32_t>(id);
}

/// Why a session has ended.
enum class End : uint8_t {
    bye = 1,       ///< one of the two sides wished it
    disconnected,  ///< the engine lost the connection
    silence,       ///< nothing was heard for the tolerance
    gap,           ///< a frame is missing
    malformed,     ///< the far side sent what no link sends
    version,       ///< the two have no version in common
    self,          ///< the far side is this node
    greetingLate,  ///< the far side did not greet in time
    replaced,      ///< a newer connection of the same peer took over
};
const char* textOf(End end);

/// Signals of a session that has ended which the far side has not acknowledged.
struct Loss {
    FarId to = {};
    std::string name;  ///< empty when the destination had ended before
    uint64_t signals = 0;
};

// What a session tells its user, in this order: Up once, then the others, then Down once.

struct Up {
    Hello peer;
};
/// An endpoint is alive over there. The proxy of an earlier one of this name has been told to close before.
struct Announced {
    FarId id = {};
    std::string name;
};
struct Arrived {
    FarId from = {};
    OwnId to = {};
    uint32_t number = 0;
    Bytes payload;
};
/// It ended over there; everything that it had sent has arrived before.
struct Ended {
    FarId id = {};
};
/// The far side hunts for a name, for as long as the session lasts.
struct Sought {
    Seek seek;
};
struct WasRefused {
    Refusal refusal;
};
/// Nothing of this session comes after it. All its proxies close now.
struct Down {
    End reason = End::bye;
    std::vector<Loss> losses;
};

using Event = std::variant<Up, Announced, Arrived, Ended, Sought, WasRefused, Down>;

}  // namespace linx::link

#endif
