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
constexpr uint32_t undisturbedRuns = 3;  ///< that show where an operation comes to, sometimes or always
constexpr uint32_t mostAttempts = 10;    ///< to come there once more, which may depend on what the others do

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
    std::string call;
    uint32_t nth = 0;
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
    uint32_t unreached = 0;  ///< the operation did not come there again
    uint32_t failed = 0;
    uint32_t troubled = 0;        ///< operations that are not well though nothing befalls them
    std::map<Deed, uint32_t> by;  ///< how many of each were withstood
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
std::string describe(const scene::Operation& operation, const calls::Fault& fault) {
    std::string text = std::string("--only '") + operation.name + "' --call '" + fault.site.call->name + "' --nth " +
                       std::to_string(fault.site.nth) + " --how " + nameOf(fault.deed);
    if (fault.error != 0) text += " --error " + nameOf(fault.error);
    return text;
}

bool isWanted(const Options& options, const calls::Fault& fault) {
    return (options.call.empty() || options.call == fault.site.call->name) &&
           (options.nth == 0 || options.nth == fault.site.nth) &&
           (options.how.empty() || options.how == nameOf(fault.deed)) &&
           (options.error.empty() || options.error == nameOf(fault.error));
}

std::vector<calls::Site> sitesOf(const std::vector<const calls::KnownCall*>& made) {
    std::vector<calls::Site> sites;
    std::map<const calls::KnownCall*, uint32_t> seen;
    for (const calls::KnownCall* call : made) sites.push_back({call, ++seen[call]});
    return sites;
}

/// Everywhere that the operation comes to, in one run or another, when nothing befalls it. Says when it is not well
/// then.
std::vector<calls::Site> explore(const scene::Operation& operation, Tally& tally) {
    std::vector<calls::Site> sites;
    std::map<const calls::KnownCall*, uint32_t> known;
    bool well = true;
    for (uint32_t run = 0; run < undisturbedRuns; ++run) {
        const calls::Outcome whole = calls::attempt(operation, {});
        for (const std::string& complaint : whole.complaints) {
            std::cout << operation.name << ", when nothing befalls it: " << complaint << std::endl;
        }
        well = well && whole.complaints.empty();
        for (const calls::Site& site : sitesOf(whole.calls)) {
            if (site.nth <= known[site.call]) continue;
            known[site.call] = site.nth;
            sites.push_back(site);
        }
    }
    if (!well) ++tally.troubled;
    return sites;
}

/// Everything that may befall the operation there.
void addFaults(const calls::Site& site, std::vector<calls::Fault>& faults) {
    const calls::KnownCall& call = *site.call;
    const auto add = [&](Deed deed, int error = 0) { faults.push_back({deed, site, error}); };
    if (call.isIdle() && site.nth > 1) return;
    for (const Deed deed : {Deed::killBefore, Deed::stopBefore, Deed::pauseBefore, Deed::delay}) add(deed);
    if (!call.isFork() && !call.isLast()) {
        for (const Deed deed : {Deed::killAfter, Deed::stopAfter, Deed::pauseAfter}) add(deed);
    }
    for (const int error : call.errors) {
        add(Deed::fail, error);
        add(Deed::failOn, error);
    }
}

/// Tries it until the operation comes to the site, and tells what is not well.
void attempt(const scene::Operation& operation, const calls::Fault& fault, Tally& tally) {
    calls::Outcome outcome;
    for (uint32_t left = mostAttempts; left != 0 && !outcome.reached && outcome.complaints.empty(); --left) {
        outcome = calls::attempt(operation, fault);
    }
    ++tally.tried;
    for (const std::string& complaint : outcome.complaints) {
        std::cout << describe(operation, fault) << ": " << complaint << std::endl;
    }
    if (!outcome.complaints.empty()) {
        ++tally.failed;
    } else if (!outcome.reached) {
        ++tally.unreached;
        std::cout << describe(operation, fault) << " was not reached" << std::endl;
    } else {
        ++tally.withstood;
        ++tally.by[fault.deed];
    }
}

void exercise(const scene::Operation& operation, const Options& options, Tally& tally) {
    const std::vector<calls::Site> sites = explore(operation, tally);
    std::vector<calls::Fault> faults;
    for (const calls::Site& site : sites) addFaults(site, faults);
    faults.erase(std::remove_if(faults.begin(), faults.end(),
                                [&](const calls::Fault& fault) { return !isWanted(options, fault); }),
                 faults.end());
    const size_t tried = options.most == 0 ? faults.size() : std::min<size_t>(faults.size(), options.most);
    for (size_t i = 0; i < tried; ++i) attempt(operation, faults[i * faults.size() / tried], tally);
    ++tally.operations;
    tally.calls += sites.size();
    tally.faults += faults.size();
    std::cout << operation.name << ": " << sites.size() << " calls, " << faults.size() << " faults, " << tried
              << " tried" << std::endl;
}

void list(const scene::Operation& operation) {
    std::cout << operation.name << std::endl;
    for (const calls::Site& site : sitesOf(calls::attempt(operation, {}).calls)) {
        std::cout << "  --call '" << site.call->name << "' --nth " << site.nth << std::endl;
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
    app.add_option("--call", options.call, "the one system call that something befalls, as --list has it");
    app.add_option("--nth", options.nth, "of those in the operation the one, counted from 1");
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
              << " faults: " << tally.tried << " tried, " << tally.withstood << " withstood, " << tally.failed
              << " not, " << tally.unreached << " not reached\n";
    for (const auto& [deed, count] : tally.by) std::cout << "  " << nameOf(deed) << ": " << count << "\n";
    return tally.operations != 0 && tally.troubled == 0 && tally.failed == 0 && tally.withstood != 0 ? 0 : 1;
}
