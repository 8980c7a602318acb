#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "bench/harness/clock.h"
#include "bench/harness/shared.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/conversation.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

void LetPass(std::uint64_t nanoseconds) {
    const timespec time = {static_cast<time_t>(nanoseconds / 1000000000),
                           static_cast<long>(nanoseconds % 1000000000)};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

/// What the kernel has counted of all threads of a process.
struct Switches {
    std::uint64_t voluntary = 0;
    std::uint64_t involuntary = 0;
    bool asleep = true;

    std::uint64_t Sum() const { return voluntary + involuntary; }
};

Switches SwitchesOf(pid_t process) {
    Switches switches;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string key, value; status >> key && std::getline(status, value);) {
            if (key == "State:" && value.find('S') == std::string::npos) switches.asleep = false;
            if (key == "voluntary_ctxt_switches:") switches.voluntary += std::stoull(value);
            if (key == "nonvoluntary_ctxt_switches:") switches.involuntary += std::stoull(value);
        }
    }
    return switches;
}

/// Returns when the process sleeps and has done so for a while, or never will.
Switches Settled(pid_t process) {
    Switches before = SwitchesOf(process);
    for (unsigned tries = 0; tries < 100; ++tries) {
        LetPass(20000000);
        const Switches after = SwitchesOf(process);
        if (after.asleep && after.Sum() == before.Sum()) return after;
        before = after;
    }
    return before;
}

void Watch(pid_t process, const Effort& effort, FigureSheet& sheet) {
    const Switches before = Settled(process);
    const std::uint64_t used = ProcessorNanoseconds(process);
    const std::uint64_t start = Now();
    LetPass(effort.quick ? 100000000 : 10000000000);
    const double processor = static_cast<double>(ProcessorNanoseconds(process) - used);
    const Switches after = SwitchesOf(process);
    sheet.Put("seconds", static_cast<double>(Now() - start) / 1e9);
    sheet.Put("processor_us", processor / 1000);
    sheet.Put("switches", static_cast<double>(after.voluntary - before.voluntary));
    sheet.Put("involuntary", static_cast<double>(after.involuntary - before.involuntary));
}

class Idle : public Scenario {
public:
    std::string Name() const override { return "idle"; }
    std::string About() const override { return "A process that waits for a message which does not come"; }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        return Combine(Blocking(wishes), Pattern::fanIn, {Placement::both}, {64}, {2});
    }

    unsigned Repeats(unsigned) const override { return 1; }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const Shared<std::atomic<pid_t>> waiting;
        const auto watch = [&](End&, const ProcessorMeter&, FigureSheet& sheet) {
            while (waiting->load() == 0) sched_yield();
            Watch(*waiting, effort, sheet);
        };
        const auto wait = [&](End& end, unsigned) {
            *waiting = getpid();
            end.Receive();
        };
        return Converse(*chosen.peer, {Pattern::fanIn, 2, chosen.payload, chosen.placement, ""}, 1, watch, wait);
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeIdle() {
    return std::make_unique<Idle>();
}

}  // namespace bench
