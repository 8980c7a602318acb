#ifndef LINXIPC_INSPECT_ENDPOINTS_H
#define LINXIPC_INSPECT_ENDPOINTS_H

#include <optional>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "inspect/accounts.h"
#include "inspect/place.h"
#include "inspect/processes.h"

namespace linx {
namespace inspect {

enum class State {
    running,   ///< inside a receive, or rung for signals that it has not received yet
    sleeping,  ///< has nothing to receive: waits, or does something else
    stopped,   ///< its process is
    dead,      ///< its process has ended, and nobody has cleared up after it yet
    ended
};

/// An endpoint, open or ended.
struct Endpoint {
    std::string name;
    Spid spid = Spid::none;
    State state = State::ended;
    std::optional<Process> process;  ///< none when it may not be seen
    uint32_t deepest = 0;            ///< signals that its queue has held at a time
    uint64_t dropped = 0;            ///< signals that it could not send, or that were not for it
    uint32_t sleeps = 0;
    uint32_t rings = 0;  ///< by it, at others
    Account account;
};

/// The endpoints of a snapshot of the arena at `place`, open ones first and each kind by name; those that have ended
/// only as long as their slots have not been used again.
std::vector<Endpoint> endpointsOf(const Arena& arena, const Place& place);

}  // namespace inspect
}  // namespace linx

#endif
