// linx-models: explores the scenarios, and tells how many states it saw.

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
    bool trace = false;
    bool expectViolation = false;
    Limits limits{300000, 30000, 1};
};

Result explore(const Scenario& scenario, const Options& options) {
    Model model = modelOf(scenario);
    model.play.switches = options.switches;
    Result result;
    if (scenario.exhaustive) result = exploreAll(model, options.limits);
    if (result.exhausted || !result.violation.empty()) return result;
    // Too much to see all of it: schedules drawn at random reach what the search has not come to.
    model.play.switches = unlimited;
    const Result drawn = exploreSome(model, options.limits);
    result.states += drawn.states;
    result.executions += drawn.executions;
    result.completed += drawn.completed;
    result.violation = drawn.violation;
    result.trace = drawn.trace;
    return result;
}

void tell(const Scenario& scenario, const Result& result, double seconds) {
    const char* how = result.exhausted ? "all" : scenario.exhaustive ? "part" : "drawn";
    std::printf("%-22s %-6s %10llu %10llu %10llu %7.1f s  %s\n", scenario.name, how,
                static_cast<unsigned long long>(result.states), static_cast<unsigned long long>(result.executions),
                static_cast<unsigned long long>(result.completed), seconds,
                result.violation.empty() ? "holds" : result.violation.c_str());
    std::fflush(stdout);
}

/// The number of scenarios in which a claim does not hold.
int exploreEverything(const Options& options) {
    int violated = 0;
    uint64_t states = 0;
    uint64_t executions = 0;
    std::printf("%-22s %-6s %10s %10s %10s\n", "scenario", "seen", "states", "executions", "to the end");
    for (const Scenario* scenario : Scenario::all()) {
        if (!options.only.empty() && options.only != scenario->name) continue;
        const auto start = std::chrono::steady_clock::now();
        const Result result = explore(*scenario, options);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        tell(*scenario, result, took.count());
        states += result.states;
        executions += result.executions;
        if (result.violation.empty()) continue;
        ++violated;
        if (options.trace) {
            for (const std::string& step : result.trace) std::printf("    %s\n", step.c_str());
        }
        if (options.expectViolation) break;
    }
    std::printf("%llu states explored in %llu executions, %d scenarios violated\n",
                static_cast<unsigned long long>(states), static_cast<unsigned long long>(executions), violated);
    return violated;
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
    app.add_flag("--trace", options.trace, "Tell the steps that led to a violation");
    app.add_flag("--expect-violation", options.expectViolation, "Succeed when a claim does not hold");
    CLI11_PARSE(app, argc, argv);
    const int violated = model::exploreEverything(options);
    return (violated != 0) == options.expectViolation ? 0 : 1;
}
