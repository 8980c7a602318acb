#include "tests/crash/attempt.h"

#include <signal.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/kit/file_memory.h"
#include "tests/scene/stage.h"

namespace crash {
namespace {

struct Progress {
    Count ended;  ///< 1 when the victim is about to be killed or stopped
    std::atomic<uint32_t> places;
    std::atomic<int> result;  ///< of the operation, if it came to its end
};

void die(const scene::Operation& operation, uint32_t site, End how, Progress& progress, Line& parent) {
    scene::Victim victim;
    if (!operation.opens) {
        open(victim);
        victim.giftsDue = scene::gifts;
    }
    parent.tell();
    victim.corpse = parent.hear();
    operation.prepare(victim);
    arm(site, how, progress.ended);
    progress.result = operation.act(victim);
    progress.places = disarm();
    progress.ended = 1;
    endHere(how);
}

/// Dies while it opens an endpoint.
void dieOpening() {
    std::atomic<uint32_t> ended{0};
    arm(20, End::kill, ended);
    linx_open("corpse too", 0, nullptr);
}

constexpr uint32_t fewSlots = 7;  ///< as many endpoints as may be open at a time in any operation

/// Has every slot been used by an endpoint that has ended.
void useSlots() {
    std::vector<LINX*> all;
    while (LINX* linx = linx_open(("used" + std::to_string(all.size())).c_str(), 0, nullptr)) all.push_back(linx);
    for (LINX* linx : all) linx_close(linx);
}

}  // namespace

Outcome attempt(const scene::Operation& operation, uint32_t site, End how) {
    const linxtest::FewSlots few(fewSlots);
    scene::Stage stage(operation);
    useSlots();
    const Shared<Progress> progress;
    progress->result = operation.result;
    std::vector<std::string> complaints;
    Child victim([&](Line& parent) { die(operation, site, how, *progress, parent); });
    victim.tell(stage.enter(victim, dieOpening));

    if (how == End::stop) {
        // What needs no lock goes on though the victim stands still, wherever that is.
        if (!progress->ended.reaches(1)) complaints.push_back("the operation does not end");
        victim.stop();
        if (!stage.othersGoOn()) complaints.push_back("the others do not go on while it stands still");
        victim.kill9();
    } else if (victim.exitStatus() != -SIGKILL) {
        complaints.push_back("the victim ends by itself");
    }
    if (progress->result != operation.result) {
        complaints.push_back(std::string("the operation answers: ") + std::strerror(progress->result));
    }
    const scene::Outcome left = stage.end();
    complaints.insert(complaints.end(), left.complaints.begin(), left.complaints.end());
    return {progress->places, left.leakedBlocks, complaints};
}

}  // namespace crash
