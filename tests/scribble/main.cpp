// Scribbles over the memory of processes that talk to each other, and says whether any of them crashed or hung.

#include <CLI/CLI.hpp>
#include <iostream>

#include "tests/scribble/scribbler.h"

namespace {

struct Options {
    uint32_t rounds = 1000;
    uint32_t first = 0;
    uint32_t seed = std::random_device()() % 1000000;
};

void printFigures(const scribble::Scribbler& scribbler, double seconds) {
    const scribble::Ledger& ledger = scribbler.ledger();
    std::cout << scribbler.rounds() << " rounds in " << static_cast<int>(seconds) << " s, in " << scribbler.domains()
              << " domains\nbytes written:";
    for (uint32_t region = 0; region < linxtest::regionCount; ++region) {
        std::cout << ' ' << linxtest::nameOf(linxtest::Region{region}) << ' '
                  << scribbler.bytesIn(linxtest::Region{region});
    }
    std::cout << '\n'
              << ledger.operations << " operations, " << ledger.failed << " of them failed, " << ledger.received
              << " signals received, " << ledger.refusedOpens << " opens refused\n"
              << ledger.looks << " looks, " << ledger.captured << " signals captured\n"
              << "longest operation " << ledger.longestMilliseconds << " ms beyond its time-out\n"
              << scribbler.crashes() << " crashes, " << scribbler.hangs() << " hangs\n";
}

bool run(const Options& options) {
    std::cout << "seed " << options.seed << std::endl;
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "4");
    const linxtest::DisorderAllowed allowed;
    scribble::Scribbler scribbler(options.seed);
    const auto begin = std::chrono::steady_clock::now();
    scribbler.scribble(options.first, options.rounds);
    printFigures(scribbler, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    for (const std::string& complaint : scribbler.complaints()) {
        std::cout << "complaint: " << complaint << ", seed " << options.seed << '\n';
    }
    return scribbler.complaints().empty();
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Scribbles over the memory that processes share, and checks that all of them go on."};
    app.add_option("--rounds", options.rounds, "how often it scribbles")->capture_default_str();
    app.add_option("--first", options.first, "the round to begin with")->capture_default_str();
    app.add_option("--seed", options.seed, "what is written, and where (default: a new one each time)");
    CLI11_PARSE(app, argc, argv);
    return run(options) ? 0 : 1;
}
