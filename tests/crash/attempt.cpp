#include "tests/crash/attempt.h"

#include <signal.h>

#include <cstdlib>

#include "tests/processes/support/child.h"
#include "tests/support/aftermath.h"
#include "tests/support/domain_fixture.h"

namespace crash {
namespace {

struct Shared : Progress {
    std::atomic<uint32_t> places;
    std::atomic<uint32_t> corpse;
};

void die(const Operation& operation, uint32_t site, End how, Shared& shared, Line& parent) {
    Victim victim;
    if (!operation.opens) open(victim);
    parent.tell();
    parent.hear();
    victim.corpse = shared.corpse;
    operation.prepare(victim);
    arm(site, how, shared.ended);
    operation.act(victim);
    shared.places = disarm();
    shared.ended = 1;
    endHere(how);
}

void leaveCorpse(Corpse kind, Shared& shared) {
    Child corpse([&](Line&) {
        shared.corpse = becomeCorpse();
        std::atomic<uint32_t> ended{0};
        arm(kind == Corpse::atRest ? 1 : 20, End::kill, ended);
        linx_open("corpse too", 0, nullptr);
    });
    if (corpse.exitStatus() != -SIGKILL) std::abort();
}

/// Whether somebody who does nothing but receive comes for what was sent to him.
bool hasBeenWoken(LinxSpid spid) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::Word& mailbox = domain->arena().slot(linx::indexOf(spid)).mailbox;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
    while (linx::stack::holdsBlocks(mailbox.loadAcquire())) {
        if (std::chrono::steady_clock::now() > limit) return false;
        sched_yield();
    }
    return true;
}

}  // namespace

Outcome attempt(const Operation& operation, uint32_t site, End how) {
    const linxtest::TestDomain domain;
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "4");
    const linxtest::ScopedVariable looking("LINX_SPIN_US", operation.looking);
    const ::Shared<Shared> shared;
    Outcome outcome;

    Child second([](Line& parent) { mirror(parent); });
    const LinxSpid mirrorSpid = second.hear();
    Child first([&](Line& parent) { conduct(*shared, operation.stance, !operation.opens, parent); });
    first.hear();
    Child victim([&](Line& parent) { die(operation, site, how, *shared, parent); });
    victim.hear();
    first.tell();
    first.hear();
    if (operation.corpse != Corpse::none) leaveCorpse(operation.corpse, *shared);
    victim.tell();

    if (how == End::stop) {
        // What needs no lock goes on though the victim stands still, wherever that is.
        const bool stands = shared->ended.reaches(1);
        if (!stands) outcome.complaints.push_back("the operation does not end");
        victim.stop();
        const uint32_t before = shared->exchanged;
        const bool goOn = operation.stance != Stance::working || shared->exchanged.reaches(before + 16);
        if (!goOn) outcome.complaints.push_back("the others do not go on while it stands still");
        victim.kill9();
    } else if (victim.exitStatus() != -SIGKILL) {
        outcome.complaints.push_back("the victim ends by itself");
    }
    if (operation.stance != Stance::working && !hasBeenWoken(mirrorSpid)) {
        outcome.complaints.push_back("the second bystander sleeps over its mail");
    }
    if (operation.opens) linx_close(linx_open(victimName, 0, nullptr));  // answers a hunt that is still pending
    shared->victimEnded = true;
    if (first.exitStatus() != 0) outcome.complaints.push_back("the first bystander fails");
    if (second.exitStatus() != 0) outcome.complaints.push_back("the second bystander fails");

    outcome.places = shared->places;
    const linxtest::Aftermath left = linxtest::lookAtAftermath();
    outcome.leakedBlocks = left.leakedBlocks;
    outcome.complaints.insert(outcome.complaints.end(), left.disorder.begin(), left.disorder.end());
    for (const std::string& file : domain.leftovers()) outcome.complaints.push_back("left behind: " + file);
    return outcome;
}

}  // namespace crash
