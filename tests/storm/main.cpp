// Kills, stops and replaces processes that talk to each other, and says whether anybody else took notice.

#include <CLI/CLI.hpp>
#include <iostream>
#include <random>

#include "platform/linx.h"
#include "tests/kit/arena_order.h"
#include "tests/kit/domain.h"
#include "tests/kit/file_memory.h"
#include "tests/kit/shared.h"
#include "tests/storm/storm.h"

namespace {

struct Options {
    uint32_t kills = 1000;
    uint32_t seed = std::random_device()() % 1000000;
    uint32_t slots = 23;  ///< 16 may be open at a time, and some who have died
};

bool report(const std::string& what, const std::vector<std::string>& complaints) {
    for (const std::string& complaint : complaints) std::cout << what << ": " << complaint << '\n';
    return complaints.empty();
}

void printFigures(const traffic::Ledger& ledger, const storm::Storm& storm, size_t leaked) {
    const auto stall = std::chrono::duration_cast<std::chrono::milliseconds>(storm.longestStall());
    std::cout << storm.kills() << " kills, " << storm.stops() << " stops, " << storm.rests() << " rests, "
              << ledger.livesUsed << " endpoints\n"
              << ledger.verified << " signals verified, " << ledger.relayed << " of them relayed, " << ledger.notices
              << " ends told, " << ledger.hunts << " hunts answered, " << ledger.timeouts << " time-outs\n"
              << ledger.refused << " sends refused by the dead, " << ledger.interrupted
              << " sends cut short by their sender's death, " << ledger.noMemory << " allocations without memory\n"
              << ledger.captured << " signals verified as captured, in " << ledger.captures << " captures, and "
              << ledger.looks << " looks; " << storm.killedOnlookers() << " onlookers killed\n"
              << ledger.losses << " losses, longest stall " << stall.count() << " ms\n"
              << leaked << " blocks leaked by " << storm.kills() << " kills\n";
}

bool rage(const Options& options) {
    std::cout << "seed " << options.seed << std::endl;
    const linxtest::FewSlots few(options.slots);
    const linxtest::TestDomain domain;
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "64");
    // Made before anybody is killed: who dies while it makes an arena leaves the unfinished file.
    linx_close(linx_open("first", 0, nullptr));
    const Shared<traffic::Ledger> ledger;
    storm::Storm storm(*ledger, options.seed);
    storm.rage(options.kills);
    bool fine = report("complaint", ledger->allComplaints());
    if (!fine) return false;
    const linxtest::Findings left = linxtest::lookAtAftermath();
    printFigures(*ledger, storm, left.census.lost);
    if (!left.broken.empty()) fine = report("the arena", {left.broken});
    return report("left behind", domain.leftovers()) && fine;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Kills and stops processes amid their traffic, and checks what the others see of it."};
    app.add_option("--kills", options.kills, "how many processes are killed")->capture_default_str();
    app.add_option("--seed", options.seed, "whom the storm hits, and when (default: a new one each time)");
    app.add_option("--slots", options.slots,
                   "how many slots the domain has: the fewer, the sooner they are used again")
        ->capture_default_str()
        ->check(CLI::Range(16u, linx::slotCount - 1));
    CLI11_PARSE(app, argc, argv);
    const bool fine = rage(options);
    return fine && !testing::Test::HasFailure() ? 0 : 1;
}
