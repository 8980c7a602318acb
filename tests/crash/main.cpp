// Ends a process at every place where it changes shared memory, and looks whether anybody else took notice.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>

#include "tests/crash/attempt.h"

namespace {

using crash::End;

struct Options {
    uint32_t most = 0;
    std::string only;
};

struct Tally {
    uint32_t places = 0;
    uint32_t sites = 0;
    uint32_t survived = 0;
    uint32_t leaks = 0;
    uint32_t mostLeaked = 0;
};

/// Whether all is well after an end there.
bool survive(const crash::Operation& operation, uint32_t site, End how, Tally& tally) {
    crash::Outcome outcome = crash::attempt(operation, site, how);
    if (outcome.leakedBlocks > 1) outcome.complaints.push_back(std::to_string(outcome.leakedBlocks) + " blocks leak");
    for (const std::string& complaint : outcome.complaints) {
        std::cout << operation.name << ", " << (how == End::kill ? "killed" : "stopped") << " at " << site << ": "
                  << complaint << std::endl;
    }
    tally.leaks += outcome.leakedBlocks;
    tally.mostLeaked = std::max(tally.mostLeaked, outcome.leakedBlocks);
    ++tally.sites;
    tally.survived += outcome.complaints.empty() ? 1 : 0;
    return outcome.complaints.empty();
}

/// How many places the operation has: it may vary a little with what the others do.
uint32_t countPlaces(const crash::Operation& operation) {
    return crash::attempt(operation, crash::nowhere, End::kill).places;
}

void exercise(const crash::Operation& operation, uint32_t most, Tally& tally) {
    const uint32_t places = countPlaces(operation);
    const uint32_t tried = most == 0 ? places : std::min(places, most);
    for (uint32_t i = 0; i < tried; ++i) {
        const uint32_t site = 1 + static_cast<uint32_t>(uint64_t{i} * places / tried);
        survive(operation, site, End::kill, tally);
        survive(operation, site, End::stop, tally);
    }
    tally.places += 2 * places;
    std::cout << operation.name << ": " << places << " places, " << tried << " tried" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{
        "Kills and stops a process wherever it changes shared memory, and checks what the others see of it."};
    app.add_option("--most", options.most, "how many places of an operation are tried, spread over it; 0: all")
        ->capture_default_str();
    app.add_option("--only", options.only, "the one operation to try");
    CLI11_PARSE(app, argc, argv);
    Tally tally;
    for (const crash::Operation& operation : crash::operations) {
        if (options.only.empty() || options.only == operation.name) exercise(operation, options.most, tally);
    }
    std::cout << tally.sites << " crash sites of " << tally.places << ", " << tally.survived << " survived, "
              << tally.leaks << " blocks leaked in all, at most " << tally.mostLeaked << " at a site\n";
    return tally.sites != 0 && tally.survived == tally.sites ? 0 : 1;
}
