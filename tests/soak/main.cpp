// Has endpoints live long among others that come and go, and says whether that costs anything that stays.

#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <random>

#include "tests/kit/arena_order.h"
#include "tests/kit/domain.h"
#include "tests/soak/soak.h"

namespace {

struct Options {
    double minutes = 10;
    uint32_t seed = std::random_device()() % 1000000;
};

bool report(const std::string& what, const std::vector<std::string>& complaints) {
    for (const std::string& complaint : complaints) std::cout << what << ": " << complaint << '\n';
    return complaints.empty();
}

double cpuSeconds(int whose) {
    rusage usage = {};
    getrusage(whose, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void printFigures(const soak::Board& board, const soak::Soak& soak) {
    const traffic::Ledger& plain = board.workers;
    const traffic::Ledger& library = board.members;
    const soak::Sample& last = soak.samples().back();
    const auto row = [](const char* what, const auto& byOperations, const auto& byLibrary) {
        std::cout << std::left << std::setw(24) << what << std::right << std::setw(14) << byOperations
                  << std::setw(14) << byLibrary << '\n';
    };
    row("", "operations", "library");
    row("signals verified", plain.verified, library.verified);
    row("MiB in them", plain.kibibytes / 1024, library.kibibytes / 1024);
    row("relayed", plain.relayed, library.relayed);
    row("endpoints opened", plain.livesUsed, library.livesUsed);
    row("ends told", plain.notices, library.notices);
    row("time-outs", plain.timeouts, library.timeouts);
    row("sends refused", plain.refused, library.refused);
    row("sends cut short", plain.interrupted, library.interrupted);
    row("without memory", plain.noMemory, library.noMemory);
    row("lost", plain.losses, library.losses);
    std::cout << "late answers kept " << last.lateAnswers << ", names learnt and kept";
    for (uint32_t server = 0; server < soak::servers; ++server) std::cout << ' ' << last.resources[server].met;
    std::cout << '\n';
    const double cpu = cpuSeconds(RUSAGE_CHILDREN) + cpuSeconds(RUSAGE_SELF);
    const auto stall = std::chrono::duration_cast<std::chrono::milliseconds>(soak.longestStall());
    std::cout << last.minutes << " minutes, " << soak.kills() << " processes killed and " << soak.ends()
              << " ended, longest stall " << stall.count() << " ms, " << std::setprecision(2)
              << cpu / last.minutes / 60 << " processors busy on average\n";
}

bool soakFor(const Options& options) {
    using namespace std::chrono;
    std::cout << "seed " << options.seed << std::endl;
    const linxtest::TestDomain domain;
    const linxtest::ScopedVariable size("LINX_ARENA_MB", std::to_string(soak::arenaMib).c_str());
    const linxtest::ScopedVariable noLog("LINX_LOG_LEVEL", "0");
    const Shared<soak::Board> board;
    soak::Soak soak(*board, domain.path(), options.seed);
    const auto time = duration_cast<milliseconds>(duration<double, std::ratio<60>>(options.minutes));
    soak::printHeading();
    soak.run(time, std::clamp<milliseconds>(time / 12, seconds(2), seconds(60)));
    if (!report("complaint", soak.complaints())) return false;
    printFigures(*board, soak);
    if (soak.samples().size() < 2) return report("not steady", {"the time was too short to tell"});
    bool fine = report("not steady", compare(soak.samples()));
    const std::string broken = linxtest::lookAtAftermath().broken;
    if (!broken.empty()) fine = report("the arena", {broken});
    return report("left behind", domain.leftovers()) && fine;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{
        "Has endpoints live long among others that come and go, and checks that what they hold stays the same."};
    app.add_option("--minutes", options.minutes, "how long")->capture_default_str();
    app.add_option("--seed", options.seed, "who does what, and when (default: a new one each time)");
    CLI11_PARSE(app, argc, argv);
    const bool fine = soakFor(options);
    std::cout << (fine ? "steady\n" : "NOT steady\n");
    return fine && !testing::Test::HasFailure() ? 0 : 1;
}
