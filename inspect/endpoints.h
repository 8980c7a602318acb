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
    sleeping,  ///< has nothing to receive: waits for any signal, or does something else
    waiting,   ///< sleeps in a receive that takes only signals of certain numbers
    stopped,   ///< its process is
    dead,      ///< its process has ended, and nobody has cleared up after it yet
    ended
};

/// What a sleeping endpoint waits for.
struct Wait {
    uint64_t since = 0;             ///< nanoseconds of the monotonic clock
    uint32_t count = 0;             ///< of the numbers; 0: any signal
    std::vector<uint32_t> numbers;  ///< the first four at most
    Spid to = Spid::none;           ///< to whom it sent last, if to anybody
    uint32_t sent = 0;              ///< which number
};

/// An endpoint, open or ended.
struct Endpoint {
    std::string name;
    Spid spid = Spid::none;
    State state = State::ended;
    uint32_t ending = 0;             ///< when it has ended: the how manieth to end in the domain, modulo 2^32
    std::optional<Process> process;  ///< none when it may not be seen
    bool isLink = false;            ///< the own endpoint of a link to another machine
    uint32_t deepest = 0;            ///< signals that its queue has held at a time
    uint64_t dropped = 0;            ///< signals that it could not send, or that were not for it
    Refusals refused{};              ///< these by reason
    Traffic traffic{};
    std::optional<Wait> wait;
    uint32_t logMask = 0;
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
