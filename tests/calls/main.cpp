// Has something befall a process at every system call of every operation, and looks whether anybody else took notice,
// and whether the process, if it lives on, answers as it should and works again.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <string>

#include "tests/calls/attempt.h"
#include "tests/calls/tracer.h"

namespace {

using calls::Deed;

constexpr int cannotRunHere = 77;

const std::map<std::string, Deed> deeds = {
    {"kill-before", Deed::killBefore},
    {"kill-after", Deed::killAfter},
    {"stop-before", Deed::stopBefore},
    {"stop-after", Deed::stopAfter},
    {"pause-before", Deed::pauseBefore},
    {"pause-after", Deed::pauseAfter},
    {"delay", Deed::delay},
    {"fail", Deed::fail},
    {"fail-on", Deed::failOn},
};

struct Options {
    uint32_t most = 0;
    std::string only;
    uint32_t at = 0;
    std::string how;
    std::string error;
    bool list = false;
};

struct Tally {
    uint32_t operations = 0;
    size_t calls = 0;
    size_t faults = 0;
    uint32_t tried = 0;
    uint32_t withstood = 0;
    uint32_t unreached = 0;
    uint32_t troubled = 0;        ///< operations that are not well though nothing befalls them
    std::map<Deed, uint32_t> by;  ///< how many of each were tried
};

/// A fault, and where in the operation it is.
struct Trial {
    calls::Fault fault;
    uint32_t at;
};

std::string nameOf(int error) {
    const char* name = strerrorname_np(error);
    return name == nullptr ? std::to_string(error) : name;
}

std::string nameOf(Deed deed) {
    const auto found =
        std::find_if(deeds.begin(), deeds.end(), [&](const auto& entry) { return entry.second == deed; });
    return found == deeds.end() ? "nothing" : found->first;
}

/// As options that try it again.
std::string describe(const scene::Operation& operation, const Trial& trial) {
    std::string text = std::string("--only '") + operation.name + "' --at " + std::to_string(trial.at) + " --how " +
                       nameOf(trial.fault.deed);
    if (trial.fault.error != 0) text += " --error " + nameOf(trial.fault.error);
    return text + " (" + trial.fault.site.call->name + ")";
}

bool isWanted(const Options& options, const Trial& trial) {
    return (options.at == 0 || options.at == trial.at) &&
           (options.how.empty() || options.how == nameOf(trial.fault.deed)) &&
           (options.error.empty() || options.error == nameOf(trial.fault.error));
}

/// Everything that may befall an operation that makes these calls.
std::vector<Trial> trialsOf(const std::vector<const calls::KnownCall*>& made) {
    std::vector<Trial> trials;
    std::map<const calls::KnownCall*, uint32_t> seen;
    for (uint32_t i = 0; i < made.size(); ++i) {
        const calls::KnownCall* call = made[i];
        const calls::Site site = {call, ++seen[call]};
        const auto add = [&](Deed deed, int error = 0) { trials.push_back({{deed, site, error}, i + 1}); };
        if (call->isIdle() && site.nth > 1) continue;
        for (const Deed deed : {Deed::killBefore, Deed::stopBefore, Deed::pauseBefore, Deed::delay}) add(deed);
        if (!call->isFork() && !call->isLast()) {
            for (const Deed deed : {Deed::killAfter, Deed::stopAfter, Deed::pauseAfter}) add(deed);
        }
        for (const int error : call->errors) {
            add(Deed::fail, error);
            add(Deed::failOn, error);
        }
    }
    return trials;
}

/// Tries it, and tells what is not well.
void attempt(const scene::Operation& operation, const Trial& trial, Tally& tally) {
    const calls::Outcome outcome = calls::attempt(operation, trial.fault);
    ++tally.tried;
    ++tally.by[trial.fault.deed];
    if (!outcome.reached) {
        ++tally.unreached;
        std::cout << describe(operation, trial) << " was not reached" << std::endl;
    }
    if (outcome.complaints.empty()) ++tally.withstood;
    for (const std::string& complaint : outcome.complaints) {
        std::cout << describe(operation, trial) << ": " << complaint << std::endl;
    }
}

void exercise(const scene::Operation& operation, const Options& options, Tally& tally) {
    const calls::Outcome whole = calls::attempt(operation, {});
    for (const std::string& complaint : whole.complaints) {
        std::cout << operation.name << ", when nothing befalls it: " << complaint << std::endl;
    }
    if (!whole.complaints.empty()) ++tally.troubled;
    std::vector<Trial> trials;
    for (const Trial& trial : trialsOf(whole.calls)) {
        if (isWanted(options, trial)) trials.push_back(trial);
    }
    const size_t tried = options.most == 0 ? trials.size() : std::min<size_t>(trials.size(), options.most);
    for (size_t i = 0; i < tried; ++i) attempt(operation, trials[i * trials.size() / tried], tally);
    ++tally.operations;
    tally.calls += whole.calls.size();
    tally.faults += trials.size();
    std::cout << operation.name << ": " << whole.calls.size() << " calls, " << trials.size() << " faults, " << tried
              << " tried" << std::endl;
}

void list(const scene::Operation& operation) {
    std::cout << operation.name << std::endl;
    uint32_t at = 0;
    for (const calls::KnownCall* call : calls::attempt(operation, {}).calls) {
        std::cout << "  " << ++at << " " << call->name << std::endl;
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{
        "Kills, stops and delays a process at every system call, has the call fail in every way, and checks what "
        "the\n"
        "others see of it, and what it answers."};
    app.add_option("--most", options.most, "how many faults of an operation are tried, spread over it; 0: all")
        ->capture_default_str();
    app.add_option("--only", options.only, "the one operation to try");
    app.add_option("--at", options.at, "the one call of the operation, counted from 1");
    app.add_option("--how", options.how,
                   "the one thing to befall it: kill-before, kill-after, stop-before, stop-after,\n"
                   "pause-before, pause-after, delay, fail, fail-on (and all that follow)");
    app.add_option("--error", options.error, "the one error to be answered, such as EMFILE");
    app.add_flag("--list", options.list, "only lists the calls of each operation");
    CLI11_PARSE(app, argc, argv);
    if (!calls::Tracer::isPossible()) {
        std::cout << "skipped: system calls of other processes cannot be watched here\n";
        return cannotRunHere;
    }
    const std::time_t now = 0;
    std::localtime(&now);  // reads the time zone, which is the first thing that a log would do
    Tally tally;
    for (const scene::Operation& operation : calls::operations()) {
        if (!options.only.empty() && options.only != operation.name) continue;
        if (calls::promiseOf(operation) == nullptr) {
            std::cout << operation.name << " has no promise\n";
            return 1;
        }
        options.list ? list(operation) : exercise(operation, options, tally);
    }
    if (options.list) return 0;
    std::cout << tally.operations << " operations, " << tally.calls << " calls, " << tally.faults
              << " faults: " << tally.tried << " tried, " << tally.withstood << " withstood, " << tally.unreached
              << " not reached\n";
    for (const auto& [deed, count] : tally.by) std::cout << "  " << nameOf(deed) << ": " << count << "\n";
    return tally.operations != 0 && tally.troubled == 0 && tally.withstood == tally.tried ? 0 : 1;
}
