// linx-simulate: sessions over a simulated network, a world for each seed.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>

#include "tests/simulate/run.h"

namespace simulate {
namespace {

struct Options {
    uint64_t seeds = 1000;
    uint64_t first = 1;
    uint64_t jobs = 1;
    bool expectViolation = false;
};

/// What one process of several has seen, as it stands in memory that they share with none: it goes through a pipe.
struct Sum {
    uint64_t seeds = 0, sessions = 0, signals = 0, notices = 0, losses = 0, faults = 0;
    int64_t slowest = 0;
    uint64_t slowestSeed = 0;
    uint64_t violated = 0;  ///< its seed, and 0 when all claims hold

    void add(const Sum& other) {
        seeds += other.seeds;
        sessions += other.sessions;
        signals += other.signals;
        notices += other.notices;
        losses += other.losses;
        faults += other.faults;
        if (other.slowest > slowest) {
            slowest = other.slowest;
            slowestSeed = other.slowestSeed;
        }
        if (violated == 0 || (other.violated != 0 && other.violated < violated)) violated = other.violated;
    }
};

Sum sumOf(uint64_t seed, const Outcome& outcome) {
    Sum sum = {1, outcome.sessions, outcome.signals, outcome.notices, outcome.losses, outcome.faults};
    sum.slowest = outcome.recovery.count();
    sum.slowestSeed = seed;
    if (!outcome.violation.empty()) sum.violated = seed;
    return sum;
}

/// Every `step`-th seed from `first`, up to the first at which a claim does not hold.
Sum runSome(uint64_t first, uint64_t end, uint64_t step) {
    Sum sum;
    for (uint64_t seed = first; seed < end && sum.violated == 0; seed += step) sum.add(sumOf(seed, run(seed, false)));
    return sum;
}

bool runAll(const Options& options, Sum& sum) {
    const uint64_t end = options.first + options.seeds;
    std::vector<int> pipes;
    for (uint64_t job = 0; job < options.jobs; ++job) {
        int ends[2];
        if (pipe(ends) == -1) return false;
        if (fork() == 0) {
            const Sum some = runSome(options.first + job, end, options.jobs);
            _exit(write(ends[1], &some, sizeof some) == sizeof some ? 0 : 1);
        }
        close(ends[1]);
        pipes.push_back(ends[0]);
    }
    bool isWhole = true;
    for (const int from : pipes) {
        Sum some;
        isWhole = read(from, &some, sizeof some) == sizeof some && isWhole;
        close(from);
        wait(nullptr);
        sum.add(some);
    }
    return isWhole;
}

void print(const Sum& sum) {
    std::printf("%" PRIu64 " seeds: %" PRIu64 " sessions up, %" PRIu64 " signals verified, %" PRIu64
                " ends told, %" PRIu64 " losses counted, %" PRIu64 " faults\n",
                sum.seeds, sum.sessions, sum.signals, sum.notices, sum.losses, sum.faults);
    std::printf("slowest recovery %.1f ms of the simulated clock (seed %" PRIu64 ")\n",
                static_cast<double>(sum.slowest) / 1000, sum.slowestSeed);
}

/// The same world once more, this time with everything that happens in it.
void printViolation(uint64_t seed) {
    const Outcome outcome = run(seed, true);
    for (const std::string& line : outcome.trace) std::printf("    %s\n", line.c_str());
    std::printf("seed %" PRIu64 ": %s\n", seed, outcome.violation.c_str());
}

}  // namespace
}  // namespace simulate

int main(int argc, char** argv) {
    CLI::App app("Runs the sessions of links over a simulated network that loses, doubles, delays, cuts and stops.");
    simulate::Options options;
    app.add_option("--seeds", options.seeds, "How many worlds")->capture_default_str();
    app.add_option("--first", options.first, "The first seed")->capture_default_str()->check(CLI::PositiveNumber);
    app.add_option("--jobs", options.jobs, "Processes that share the seeds")->check(CLI::Range(1, 64));
    app.add_flag("--expect-violation", options.expectViolation, "Succeed when a claim does not hold");
    CLI11_PARSE(app, argc, argv);
    simulate::Sum sum;
    if (!simulate::runAll(options, sum)) {
        std::puts("a process of the simulation did not come to its end");
        return 2;
    }
    if (sum.violated != 0) simulate::printViolation(sum.violated);
    simulate::print(sum);
    std::puts(sum.violated == 0 ? "all claims hold" : "a claim does not hold");
    return (sum.violated != 0) == options.expectViolation ? 0 : 1;
}
