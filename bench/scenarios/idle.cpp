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

void letPass(std::uint64_t nanoseconds) {
    const timespec time = {static_cast<time_t>(nanoseconds / 1000000000),
                           static_cast<long>(nanoseconds % 1000000000)};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

/// What the kernel has counted of all threads of a process.
struct Switches {
    std::uint64_t voluntary = 0;
    std::uint64_t involuntary = 0;
    bool asleep = true;

    std::uint64_t sum() const { return voluntary + involuntary; }
};

Switches switchesOf(pid_t process) {
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
Switches settled(pid_t process) {
    Switches before = switchesOf(process);
    for (unsigned tries = 0; tries < 100; ++tries) {
        letPass(20000000);
        const Switches after = switchesOf(process);
        if (after.asleep && after.sum() == before.sum()) return after;
        before = after;
    }
    return before;
}

void watch(pid_t process, const Effort& effort, FigureSheet& sheet) {
    const Switches before = settled(process);
    const std::uint64_t used = processorNanoseconds(process);
    const std::uint64_t start = now();
    letPass(effort.quick ? 100000000 : 10000000000);
    const double processor = static_cast<double>(processorNanoseconds(process) - used);
    const Switches after = switchesOf(process);
    sheet.put("seconds", static_cast<double>(now() - start) / 1e9);
    sheet.put("processor_us", processor / 1000);
    sheet.put("switches", static_cast<double>(after.voluntary - before.voluntary));
    sheet.put("involuntary", static_cast<double>(after.involuntary - before.involuntary));
}

class Idle : public Scenario {
public:
    std::string name() const override { return "idle"; }
    std::string about() const override { return "A process that waits for a message which does not come"; }

    std::vector<Case> cases(const Wishes& wishes) const override {
        return combine(blocking(wishes), Pattern::fanIn, {Placement::both}, {64}, {2});
    }

    unsigned repeats(unsigned) const override { return 1; }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const Shared<std::atomic<pid_t>> waiting;
        const auto observe = [&](End&, const ProcessorMeter&, FigureSheet& sheet) {
            while (waiting->load() == 0) sched_yield();
            watch(*waiting, effort, sheet);
        };
        const auto wait = [&](End& end, unsigned) {
            *waiting = getpid();
            end.receive();
        };
        return converse(*chosen.peer, {Pattern::fanIn, 2, chosen.payload, chosen.placement, ""}, 1, observe, wait);
    }
};

}  // namespace

std::unique_ptr<Scenario> makeIdle() {
    return std::make_unique<Idle>();
}

}  // namespace bench
