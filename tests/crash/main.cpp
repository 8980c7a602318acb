// Ends a process at every place where it changes shared memory, and looks whether anybody else took notice.

#include <gtest/gtest.h>

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

/// Has the process end there, or when it has done everything, and tells what is not well. Returns how many places it
/// has come to at most.
uint32_t tryEnd(const scene::Operation& operation, uint32_t site, End how, Tally& tally) {
    crash::Outcome outcome = crash::attempt(operation, site, how);
    if (outcome.leakedBlocks != 0)
        outcome.complaints.push_back(std::to_string(outcome.leakedBlocks) + " blocks leak");
    const std::string where = site == crash::nowhere ? "its end" : std::to_string(site);
    for (const std::string& complaint : outcome.complaints) {
        std::cout << operation.name << ", " << (how == End::kill ? "killed" : "stopped") << " at " << where << ": "
                  << complaint << std::endl;
    }
    tally.leaks += outcome.leakedBlocks;
    tally.mostLeaked = std::max(tally.mostLeaked, outcome.leakedBlocks);
    ++tally.sites;
    tally.survived += outcome.complaints.empty() ? 1 : 0;
    return outcome.places;
}

void exercise(const scene::Operation& operation, uint32_t most, Tally& tally) {
    const uint32_t places = tryEnd(operation, crash::nowhere, End::kill, tally);  // varies with what the others do
    const uint32_t tried = most == 0 ? places : std::min(places, most);
    for (uint32_t i = 0; i < tried; ++i) {
        const uint32_t site = 1 + static_cast<uint32_t>(uint64_t{i} * places / tried);
        tryEnd(operation, site, End::kill, tally);
        tryEnd(operation, site, End::stop, tally);
    }
    tally.places += 2 * places + 1;
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
    for (const scene::Operation& operation : scene::operations) {
        if (options.only.empty() || options.only == operation.name) exercise(operation, options.most, tally);
    }
    std::cout << tally.sites << " crash sites of " << tally.places << ", " << tally.survived << " survived, "
              << tally.leaks << " blocks leaked in all, at most " << tally.mostLeaked << " at a site\n";
    return tally.sites != 0 && tally.survived == tally.sites && !testing::Test::HasFailure() ? 0 : 1;
}
