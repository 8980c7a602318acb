#include "tests/calls/attempt.h"

#include <signal.h>

#include "host/recovery/repair.h"
#include "tests/calls/director.h"
#include "tests/calls/performance.h"
#include "tests/kit/arena_order.h"
#include "tests/scene/stage.h"

namespace calls {
namespace {

using Complaints = std::vector<std::string>;

/// Has the fault befall the victim, which waits to be told to begin. Whether it must have ended by that.
bool befall(const Child& victim, const scene::Operation& operation, const Fault& fault, const scene::Stage& stage,
            const Display& display, Director& director, Complaints& complaints) {
    const Tracer::Watch watch = [&](const Call& call) { return director.decide(call); };
    Tracer tracer(victim.pid(), display.window);
    victim.tell();
    if (tracer.run(watch) != Tracer::State::stands) return false;
    if (fault.stops() && !stage.othersGoOn()) complaints.push_back("the others do not go on while it stands still");
    if (fault.kills()) return tracer.kill() || !promiseOf(operation)->survives;
    tracer.run(watch);
    return false;
}

/// What was to happen to the victim has happened: its own end must come.
void awaitEnd(Child& victim, bool lives, Complaints& complaints) {
    if (!victim.endsInTime()) {
        complaints.push_back("the process does not end");
        victim.kill9();
        return;
    }
    const int status = victim.exitStatus();
    if (status != (lives ? 0 : -SIGKILL)) complaints.push_back("the process ends with " + std::to_string(status));
}

/// One who dies while he holds the lock.
void dieInside() {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::DomainLock lock(*domain);
    kill(getpid(), SIGKILL);
}

/// Removes, besides, the doorbells of ended endpoints that the kernel has refused to remove: until then they stay.
void mendDomain() {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    linx::repair(linx::DomainLock(*domain));
}

/// The domain in `path` must be in order, if there is one: it was made by the operation, and is removed.
void lookElsewhere(const std::string& path, bool mend, Complaints& complaints) {
    if (!linxtest::namesIn(path).empty()) {
        const linxtest::ScopedVariable there("LINX_DOMAIN", path.c_str());
        if (mend) mendDomain();
        const std::string broken = linxtest::lookAtAftermath().broken;
        if (!broken.empty()) complaints.push_back(broken);
    }
    for (const std::string& name : linxtest::namesIn(path)) {
        if (name != linx::arenaFileName) complaints.push_back("left behind: " + name);
        unlink((path + "/" + name).c_str());
    }
    rmdir(path.c_str());
}

}  // namespace

Outcome attempt(const scene::Operation& operation, const Fault& fault) {
    scene::Stage stage(operation);
    const Shared<Display> display;
    display->isForGood = fault.deed == Deed::failOn;
    Director director(fault);
    Complaints complaints;
    bool lives;
    {
        Child victim([&](Line& parent) { perform(operation, stage.progress(), *display, parent); });
        victim.tell(stage.enter(victim, dieInside));
        victim.hear();
        lives = !befall(victim, operation, fault, stage, *display, director, complaints);
        awaitEnd(victim, lives, complaints);
    }
    if (director.hasRefusedRemoval()) mendDomain();
    lookElsewhere(stage.domain().pathOf(newDomain), director.hasRefusedRemoval(), complaints);
    const scene::Outcome left = stage.end();
    complaints.insert(complaints.end(), left.complaints.begin(), left.complaints.end());
    if (left.leakedBlocks != 0) complaints.push_back(std::to_string(left.leakedBlocks) + " blocks leak");
    if (lives && stage.progress().parcels != display->parcels) {
        complaints.push_back("a signal that was sent is lost");
    }
    for (const uint64_t number : director.unknown()) {
        complaints.push_back("nothing is known of system call " + std::to_string(number));
    }
    return {director.calls(), director.hasReached(), complaints};
}

}  // namespace calls
