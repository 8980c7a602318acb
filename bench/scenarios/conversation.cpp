#include "bench/scenarios/conversation.h"

#include <unistd.h>

#include "bench/harness/barrier.h"
#include "bench/harness/clock.h"
#include "bench/harness/crew.h"
#include "bench/harness/workspace.h"

namespace bench {

namespace {

ProcessorMeter meterOf(std::vector<pid_t> processes) {
    return [processes] {
        std::uint64_t used = 0;
        for (const pid_t process : processes) used += processorNanoseconds(process);
        return used;
    };
}

}  // namespace

Figures converse(const Peer& peer, Layout layout, unsigned measuring, const Measure& measure, const Turn& turn) {
    const Workspace workspace;
    layout.directory = workspace.path();
    const std::unique_ptr<Session> session = peer.begin(layout);
    const Barrier everybody(layout.processes);
    const Shared<pid_t> pids(layout.processes);
    const Shared<FigureSheet> sheet;

    const auto live = [&](unsigned self) {
        confine(layout.placement);
        pids[self] = getpid();
        End* const end =
            peer.open(*session, self).release();  // ends with its process: those who serve it go on till then
        settle(layout.placement, self);
        everybody.wait();
        end->connect();
        everybody.wait();
        if (self != measuring) {
            for (;;) turn(*end, self);
        }
        std::vector<pid_t> processes = session->daemons;
        for (unsigned i = 0; i < layout.processes; ++i) processes.push_back(pids[i]);
        measure(*end, meterOf(processes), *sheet);
    };

    std::vector<Member> members;
    for (unsigned self = 0; self < layout.processes; ++self) {
        const Member::Part part = self == measuring ? Member::Part::principal : Member::Part::servant;
        members.push_back({part, [&live, self] { live(self); }});
    }
    runCrew(members);
    return sheet->read();
}

}  // namespace bench
