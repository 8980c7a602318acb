#include "inspect/endpoints.h"

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "host/arena/name_table.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/wake_state.h"

namespace linx {
namespace inspect {
namespace {

/// Asks for processes, each once.
class Processes {
public:
    explicit Processes(int directory) : directory_(directory) {
        if (directory != -1) pids_ = processesIn(directory);
    }

    std::optional<Process> of(Spid spid) {
        const auto pid = pids_.find(spid);
        if (pid == pids_.end()) return std::nullopt;
        const auto known = processes_.find(pid->second);
        if (known != processes_.end()) return known->second;
        return processes_[pid->second] = processOf(pid->second);
    }

    /// Whether the endpoint has no process any more. Only the certain is said: one that may not be asked lives.
    bool isDead(Spid spid) const {
        if (directory_ == -1 || pids_.count(spid) != 0) return false;
        const ScopedDescriptor asked(doorbell::open(directory_, spid));
        return asked.get() == -1 && (errno == ENXIO || errno == ENOENT);
    }

private:
    const int directory_;
    std::unordered_map<Spid, pid_t> pids_;
    std::unordered_map<pid_t, std::optional<Process>> processes_;
};

State stateOf(const Slot& slot, const Endpoint& endpoint, const Processes& processes) {
    if (!isOpen(slot.life.loadRelaxed())) return State::ended;
    if (endpoint.process && endpoint.process->isStopped) return State::stopped;
    if (processes.isDead(endpoint.spid)) return State::dead;
    const uint32_t state = wake_state::stateOf(slot.wakeState.loadRelaxed());
    return state == wake_state::parked ? State::sleeping : State::running;
}

}  // namespace

std::vector<Endpoint> endpointsOf(const Arena& arena, const Place& place) {
    Processes processes(place.directory());
    const std::vector<Account> accounts = accountsOf(arena);
    std::vector<Endpoint> endpoints;
    endpoints.reserve(arena.usedSlots());
    arena.forEachUsedSlot([&](SlotIndex index, const Slot& slot) {
        Endpoint endpoint;
        Name name;
        endpoint.spid = spidOf(slot.life.loadRelaxed());
        if (indexOf(endpoint.spid) != index || !nameOfSpid(arena, endpoint.spid, name)) return;
        const bool isOpened = isOpen(slot.life.loadRelaxed());
        // Whoever is about to open it is still writing its name.
        if (!isOpened && (name.length() == 0 || name.hash() != slot.nameHash.loadRelaxed())) return;
        endpoint.name = name.text();
        if (isOpened) endpoint.process = processes.of(endpoint.spid);
        endpoint.state = stateOf(slot, endpoint, processes);
        endpoint.deepest = slot.deepestQueue.loadRelaxed();
        endpoint.dropped = slot.dropped.value();
        endpoint.sleeps = slot.sleeps.loadRelaxed();
        endpoint.rings = slot.rings.loadRelaxed();
        endpoint.account = accounts[numberOf(index)];
        endpoints.push_back(std::move(endpoint));
    });
    std::sort(endpoints.begin(), endpoints.end(), [](const Endpoint& a, const Endpoint& b) {
        const auto rank = [](const Endpoint& e) { return std::tuple(e.state == State::ended, e.name, e.spid); };
        return rank(a) < rank(b);
    });
    return endpoints;
}

}  // namespace inspect
}  // namespace linx
