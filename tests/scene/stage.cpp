#include "tests/scene/stage.h"

#include <signal.h>

#include <cstdlib>

#include "host/mailbox/take_all_stack.h"
#include "host/mailbox/wake_state.h"
#include "tests/kit/arena_order.h"

namespace scene {
namespace {

LinxSpid leaveCorpse(Corpse kind, const std::function<void()>& dieInside) {
    Child corpse([&](Line& parent) {
        parent.tell(becomeCorpse());
        parent.hear();
        if (kind == Corpse::holdingLock) dieInside();
        kill(getpid(), SIGKILL);
    });
    const LinxSpid spid = corpse.hear();
    corpse.tell();
    if (corpse.exitStatus() != -SIGKILL) std::abort();
    return spid;
}

/// Whether somebody who does nothing but receive comes for what was sent to him.
bool hasBeenWoken(LinxSpid spid) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Slot& slot = domain->arena().slot(linx::indexOf(linx::Spid{spid}));
    return comesTrue([&] { return !linx::stack::holdsBlocks(slot.mailbox.loadAcquire()); });
}

/// Whether he has come for all and sleeps, or is about to.
bool isAsleep(LinxSpid spid) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Slot& slot = domain->arena().slot(linx::indexOf(linx::Spid{spid}));
    return hasBeenWoken(spid) && comesTrue([&] {
               return linx::wake_state::stateOf(slot.wakeState.loadAcquire()) == linx::wake_state::parked;
           });
}

}  // namespace

Stage::Stage(const Operation& operation)
    : operation_(operation),
      size_("LINX_ARENA_MB", "4"),
      awake_("LINX_SPIN_US", operation.looking),
      second_([this](Line& parent) { mirror(progress(), parent); }),
      mirror_(second_.hear()),
      first_([this](Line& parent) { conduct(progress(), operation_.stance, !operation_.opens, parent); }),
      conductor_(first_.hear()),
      capturer_(operation.capture, domain_.path()) {}

LinxSpid Stage::enter(const Child& victim, const std::function<void()>& dieInside) {
    victim.hear();
    first_.tell();
    first_.hear();
    capturer_.begin();
    return operation_.corpse == Corpse::none ? 0 : leaveCorpse(operation_.corpse, dieInside);
}

bool Stage::othersGoOn() const {
    const uint32_t before = progress().exchanged;
    return operation_.stance != Stance::working || progress().exchanged.reaches(before + 16);
}

Outcome Stage::end() {
    Outcome outcome;
    const auto complainUnless = [&](bool well, const char* text) {
        if (!well) outcome.complaints.push_back(text);
    };
    if (operation_.stance != Stance::working) {
        complainUnless(hasBeenWoken(mirror_), "the second bystander sleeps over its mail");
    }
    if (operation_.stance == Stance::asleep) {
        complainUnless(hasBeenWoken(conductor_), "the first bystander sleeps over its mail");
    }
    if (operation_.opens) linx_close(linx_open(victimName, 0, nullptr));  // answers a hunt that is still pending
    progress().victimEnded = true;
    first_.hear();
    complainUnless(isAsleep(mirror_), "the second bystander does not come to rest");
    constexpr size_t deaths = 2;  // of the victim, and of somebody before it
    const std::string broken = linxtest::brokenAtRest(deaths);
    if (!broken.empty()) outcome.complaints.push_back("at rest: " + broken);
    first_.tell();
    complainUnless(first_.endsInTime() && first_.exitStatus() == 0, "the first bystander fails");
    complainUnless(second_.endsInTime() && second_.exitStatus() == 0, "the second bystander fails");
    const std::vector<std::string> captured = capturer_.end();
    outcome.complaints.insert(outcome.complaints.end(), captured.begin(), captured.end());
    const linxtest::Findings left = linxtest::lookAtAftermath();
    outcome.leakedBlocks = left.census.lost;
    if (!left.broken.empty()) outcome.complaints.push_back(left.broken);
    for (const std::string& file : domain_.leftovers()) outcome.complaints.push_back("left behind: " + file);
    return outcome;
}

}  // namespace scene
