#include "inspect/endpoints.h"

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "host/arena/name_table.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/wake_state.h"
#include "host/system/this_process.h"

namespace linx {
namespace inspect {
namespace {

/// Two clock ticks that are told of one start: emulators show their programs a /proc of their own, where it may be the
/// next one. So soon no number is given to another process.
bool isSameTime(uint32_t one, uint32_t other) {
    return one - other + 1 <= 2;
}

/// Asks for processes, each once.
class Processes {
public:
    explicit Processes(int directory) : directory_(directory) {}

    /// The process that has the endpoint: the one that says so in its slot, if that one is still there; or the one
    /// that holds its doorbell, where another namespace numbers it, or a forked copy has outlived it.
    std::optional<Process> of(Spid spid, const Maker& maker) {
        if (directory_ == -1) return std::nullopt;
        if (maker.process != 0 && maker.processes == ownNamespace_) {
            const std::optional<Process>& known = look(static_cast<pid_t>(maker.process));
            if (known && isSameTime(known->started, maker.started)) return known;
        }
        if (!holders_) holders_ = processesIn(directory_);
        const auto holder = holders_->find(spid);
        return holder == holders_->end() ? std::nullopt : look(holder->second);
    }

    /// Whether the endpoint, of which no process is known, has none any more. Only the certain is said: one that may
    /// not be asked lives.
    bool isDead(Spid spid) const {
        if (directory_ == -1) return false;
        const ScopedDescriptor asked(doorbell::open(directory_, spid));
        return asked.get() == -1 && (errno == ENXIO || errno == ENOENT);
    }

private:
    const std::optional<Process>& look(pid_t pid) {
        const auto known = processes_.find(pid);
        return known != processes_.end() ? known->second : processes_[pid] = processOf(pid);
    }

    const int directory_;
    const uint32_t ownNamespace_ = namespaceOfThisProcess();
    std::optional<std::unordered_map<Spid, pid_t>> holders_;
    std::unordered_map<pid_t, std::optional<Process>> processes_;
};

std::optional<Wait> waitOf(const Slot& slot) {
    const Waiting& waiting = slot.waiting;
    const bool sleeps = wake_state::stateOf(slot.wakeState.loadRelaxed()) == wake_state::parked;
    if (waiting.since == 0 || !sleeps) return std::nullopt;
    Wait wait{waiting.since, waiting.count, {}, waiting.to, waiting.sent};
    wait.numbers.assign(waiting.numbers, waiting.numbers + std::min(waiting.count, Waiting::mostNumbers));
    return wait;
}

State stateOf(const Slot& slot, const Endpoint& endpoint, const Processes& processes) {
    if (!isOpen(slot.life.loadRelaxed())) return State::ended;
    if (!endpoint.process && processes.isDead(endpoint.spid)) return State::dead;
    if (endpoint.process && endpoint.process->isStopped) return State::stopped;
    if (endpoint.wait && endpoint.wait->count != 0) return State::waiting;
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
        if (isOpened) endpoint.process = processes.of(endpoint.spid, slot.maker);
        if (isOpened) endpoint.wait = waitOf(slot);
        endpoint.state = stateOf(slot, endpoint, processes);
        endpoint.isLink = (slot.options.loadRelaxed() & LINX_OPEN_LINK) != 0;
        endpoint.ending = slot.quarantineStamp.loadRelaxed();
        endpoint.dropped = slot.dropped.value();
        endpoint.refused = slot.refused;
        endpoint.traffic = slot.traffic;
        endpoint.logMask = slot.logMask.loadRelaxed();
        endpoint.sleeps = slot.sleeps.loadRelaxed();
        endpoint.rings = slot.rings.loadRelaxed();
        endpoint.account = accounts[numberOf(index)];
        // It is counted when the mailbox is taken: neither what waits there nor notices and time-outs are in it.
        endpoint.deepest = std::max(slot.deepestQueue.loadRelaxed(), endpoint.account.queued.signals);
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
