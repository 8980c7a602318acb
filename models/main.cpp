// linx-models: explores the scenarios, and tells how many states it saw.

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>

#include "models/machine/explorer.h"
#include "models/scenarios/scenario.h"

namespace model {
namespace {

struct Options {
    std::string only;
    unsigned switches = unlimited;
    unsigned jobs = 1;
    bool trace = false;
    bool expectViolation = false;
    Limits limits;
};

/// What was seen of a scenario.
struct Report {
    Result sum;
    std::string seen = "drawn";
};

void add(Result& sum, const Result& more) {
    sum.states += more.states;
    sum.executions += more.executions;
    sum.completed += more.completed;
    sum.violation = more.violation;
    sum.trace = more.trace;
}

/// Everything, if that is not too much; or else all with one switch, with two and so on for as long as that is not
/// too much. True when there is nothing left to draw.
bool exploreExhaustively(const Scenario& scenario, const Options& options, Report& report) {
    Model model = modelOf(scenario);
    const bool isBounded = !scenario.exhaustive || options.switches != unlimited;
    if (!isBounded) {
        model.play.switches = unlimited;
        const Result all = exploreAll(model, options.limits);
        add(report.sum, all);
        if (all.exhausted) report.seen = "all";
        if (all.exhausted || !all.violation.empty()) return true;
    }
    const unsigned least = options.switches == unlimited ? 1 : options.switches;
    for (unsigned switches = least; switches <= options.switches; ++switches) {
        model.play.switches = switches;
        const Result some = exploreAll(model, options.limits);
        add(report.sum, some);
        if (some.exhausted) report.seen = std::to_string(switches) + " sw.";
        if (!some.violation.empty()) return true;
        if (!some.exhausted) break;
    }
    return false;
}

Report explore(const Scenario& scenario, const Options& options) {
    Report report;
    if (exploreExhaustively(scenario, options, report)) return report;
    // Schedules drawn at random reach what the search has not come to.
    Model model = modelOf(scenario);
    model.play.switches = unlimited;
    add(report.sum, exploreSome(model, options.limits));
    return report;
}

std::string textOf(const Scenario& scenario, const Report& report, double seconds, bool trace) {
    char line[160];
    std::snprintf(line, sizeof line, "%-22s %-6s %10llu %10llu %10llu %7.1f s  ", scenario.name, report.seen.c_str(),
                  static_cast<unsigned long long>(report.sum.states),
                  static_cast<unsigned long long>(report.sum.executions),
                  static_cast<unsigned long long>(report.sum.completed), seconds);
    std::string text = line + (report.sum.violation.empty() ? "holds" : report.sum.violation) + "\n";
    if (trace) {
        for (const std::string& step : report.sum.trace) text += "    " + step + "\n";
    }
    return text;
}

/// What a process that explores one scenario hands to the one that prints the table.
struct Tally {
    uint64_t states = 0;
    uint64_t executions = 0;
    uint32_t violated = 0;
    uint32_t textBytes = 0;
};

bool writeAll(int to, const void* data, size_t bytes) {
    for (const char* at = static_cast<const char*>(data); bytes != 0;) {
        const ssize_t written = write(to, at, bytes);
        if (written <= 0) return false;
        at += written;
        bytes -= static_cast<size_t>(written);
    }
    return true;
}
bool readAll(int from, void* data, size_t bytes) {
    for (char* at = static_cast<char*>(data); bytes != 0;) {
        const ssize_t got = read(from, at, bytes);
        if (got <= 0) return false;
        at += got;
        bytes -= static_cast<size_t>(got);
    }
    return true;
}

void exploreAndTell(const Scenario& scenario, const Options& options, int to) {
    const auto start = std::chrono::steady_clock::now();
    const Report report = explore(scenario, options);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    const std::string text = textOf(scenario, report, took.count(), options.trace);
    const Tally tally = {report.sum.states, report.sum.executions, report.sum.violation.empty() ? 0u : 1u,
                         static_cast<uint32_t>(text.size())};
    if (!writeAll(to, &tally, sizeof tally) || !writeAll(to, text.data(), text.size())) _exit(2);
}

/// Explores scenarios in processes of their own, a few at a time, and prints what they saw in the order of the table.
class Jobs {
public:
    Jobs(const std::vector<const Scenario*>& scenarios, const Options& options)
        : options_(options), scenarios_(scenarios), pipes_(scenarios.size(), {-1, 0, 0}), texts_(scenarios.size()) {}

    /// False when one of them came to nothing.
    bool run() {
        while (printed_ < scenarios_.size()) {
            while (running_ < options_.jobs && begun_ < scenarios_.size()) begin(begun_++);
            if (running_ == 0 || poll(pipes_.data(), pipes_.size(), -1) == -1) return false;
            for (size_t i = 0; i < pipes_.size(); ++i) {
                if (pipes_[i].revents != 0 && !end(i)) return false;
            }
            while (printed_ < begun_ && !texts_[printed_].empty()) std::fputs(texts_[printed_++].c_str(), stdout);
            std::fflush(stdout);
        }
        return true;
    }
    const Tally& sum() const { return sum_; }

private:
    void begin(size_t number) {
        int ends[2];
        if (pipe(ends) == -1) return;
        if (fork() == 0) {
            exploreAndTell(*scenarios_[number], options_, ends[1]);
            _exit(0);
        }
        close(ends[1]);
        pipes_[number] = {ends[0], POLLIN, 0};
        ++running_;
    }
    bool end(size_t number) {
        Tally tally;
        bool whole = readAll(pipes_[number].fd, &tally, sizeof tally);
        texts_[number].resize(whole ? tally.textBytes : 0);
        whole = whole && readAll(pipes_[number].fd, &texts_[number][0], texts_[number].size());
        close(pipes_[number].fd);
        pipes_[number] = {-1, 0, 0};
        int status = 0;
        wait(&status);
        --running_;
        sum_.states += tally.states;
        sum_.executions += tally.executions;
        sum_.violated += tally.violated;
        return whole;
    }

    const Options& options_;
    const std::vector<const Scenario*>& scenarios_;
    std::vector<pollfd> pipes_;
    std::vector<std::string> texts_;
    Tally sum_;
    size_t begun_ = 0;
    size_t printed_ = 0;
    unsigned running_ = 0;
};

/// The number of scenarios in which a claim does not hold; -1 when one could not be explored.
int exploreEverything(const Options& options) {
    std::vector<const Scenario*> chosen;
    for (const Scenario* scenario : Scenario::all()) {
        if (options.only.empty() || options.only == scenario->name) chosen.push_back(scenario);
    }
    std::printf("%-22s %-6s %10s %10s %10s\n", "scenario", "seen", "states", "executions", "to the end");
    std::fflush(stdout);
    Jobs jobs(chosen, options);
    if (chosen.empty() || !jobs.run()) return -1;
    std::printf("%llu states explored in %llu executions, %u scenarios violated\n",
                static_cast<unsigned long long>(jobs.sum().states),
                static_cast<unsigned long long>(jobs.sum().executions), jobs.sum().violated);
    return static_cast<int>(jobs.sum().violated);
}

}  // namespace
}  // namespace model

int main(int argc, char** argv) {
    CLI::App app("Explores what the endpoints of a domain may do to each other, on a weak memory, with deaths.");
    model::Options options;
    app.add_option("--scenario", options.only, "Only this one");
    app.add_option("--states", options.limits.states, "States after which an exhaustive search is cut off");
    app.add_option("--executions", options.limits.executions, "Drawn schedules where the search was cut off");
    app.add_option("--seed", options.limits.seed, "Of the drawn schedules");
    app.add_option("--switches", options.switches,
                   "How often a thread that could go on is left for another, at most");
    app.add_option("--jobs", options.jobs, "Scenarios explored at a time")->check(CLI::PositiveNumber);
    app.add_flag("--trace", options.trace, "Tell the steps that led to a violation");
    app.add_flag("--expect-violation", options.expectViolation, "Succeed when a claim does not hold");
    CLI11_PARSE(app, argc, argv);
    const int violated = model::exploreEverything(options);
    if (violated == -1) return 2;
    return (violated != 0) == options.expectViolation ? 0 : 1;
}
