// Kills, stops and replaces links and the servers that talk through them, and says whether anything was lost that had
// not to be.

#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>
#include <random>

#include "tests/kit/shared.h"
#include "tests/link/storm/storm.h"

namespace {

struct Options {
    uint32_t kills = 1000;
    uint32_t seed = std::random_device()() % 1000000;
};

void printFigures(const linkstorm::Books& books, const linkstorm::Storm& storm) {
    const linkstorm::Figures& figures = storm.figures();
    const auto row = [](const char* what, uint64_t figure) {
        std::cout << std::left << std::setw(58) << what << std::right << std::setw(12) << figure << '\n';
    };
    const auto recovery = std::chrono::duration_cast<std::chrono::milliseconds>(figures.longestRecovery);
    row("servers killed", figures.serverKills);
    row("links killed", figures.linkKills);
    row("servers stopped", figures.serverStops);
    row("links stopped for less than the tolerance", figures.shortStops);
    row("links stopped for more", figures.longStops);
    row("strikes, of one to three of these at once", figures.strikes);
    row("letters received, all whole", books.letters);
    row("MiB of them", books.bytes >> 20);
    row("requests answered", books.replies);
    row("proxies met and supervised", books.meetings);
    row("ends told", books.notices);
    row("sends refused by the ended", books.refusals);
    row("allocations without memory", books.noMemory);
    row("lost within a session", books.lost);
    row("doubled or out of order", books.doubled);
    row("changed", books.changed);
    row("ends told early", books.early);
    row("ends not told", books.missing);
    row("lost with a session whose link lived", figures.lostWithSessions);
    row("counted by the links as lost with sessions", figures.countedByLinks);
    row("lost by them and not counted", figures.uncounted);
    row("lost with a link that was killed", figures.lostWithLinks);
    row("most descriptors of a link at rest", figures.mostDescriptors);
    row("longest until all had heard from all again, in ms", static_cast<uint64_t>(recovery.count()));
}

bool rage(const Options& options) {
    std::cout << "seed " << options.seed << std::endl;
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "64");
    const Shared<linkstorm::Books> books;
    linkstorm::Storm storm(*books, options.seed);
    storm.rage(options.kills);
    printFigures(*books, storm);
    for (const std::string& complaint : books->allComplaints()) std::cout << "complaint: " << complaint << '\n';
    return books->complaintCount == 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Kills and stops links and servers amid their traffic, and checks what the others see of it."};
    app.add_option("--kills", options.kills, "how many processes are killed")->capture_default_str();
    app.add_option("--seed", options.seed, "whom the storm hits, and when (default: a new one each time)");
    CLI11_PARSE(app, argc, argv);
    const bool isFine = rage(options) && !testing::Test::HasFailure();
    if (!isFine) std::cout << "failed with seed " << options.seed << '\n';
    return isFine ? 0 : 1;
}
