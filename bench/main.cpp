#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "bench/harness/crew.h"
#include "bench/peers/list.h"
#include "bench/report/json.h"
#include "bench/report/plots.h"
#include "bench/report/table.h"
#include "bench/report/targets.h"
#include "bench/scenarios/list.h"

namespace {

using namespace bench;

struct Options {
    bool quick = false;
    unsigned repeat = 5;
    std::vector<std::string> scenarios, peers;
    std::vector<std::size_t> payloads;
    std::string json, markdown, plots, from;
};

template <class T>
bool wanted(const std::vector<T>& chosen, const T& value) {
    return chosen.empty() || std::find(chosen.begin(), chosen.end(), value) != chosen.end();
}

std::vector<std::string> scenarioNames() {
    std::vector<std::string> names;
    for (const auto& scenario : allScenarios()) names.push_back(scenario->name());
    return names;
}

std::vector<std::string> peerNames() {
    std::vector<std::string> names;
    for (const Peer* peer : allPeers().present) names.push_back(peer->name);
    return names;
}

Wishes wishesFrom(const Options& options, const PeerList& peers) {
    constexpr std::uint64_t millisecond = 1000000;
    Wishes wishes;
    wishes.payloads = options.payloads;
    wishes.effort.quick = options.quick;
    wishes.effort.warmUp = options.quick ? Stretch{0, 64} : Stretch{20 * millisecond, 256};
    wishes.effort.measured = options.quick ? Stretch{0, 512} : Stretch{60 * millisecond, 1024};
    for (const Peer* peer : peers.present) {
        if (wanted<std::string>(options.peers, peer->name)) wishes.peers.push_back(peer);
    }
    if (wishes.payloads.empty()) wishes.payloads = {16, 64, 256, 1024, 4096, 16384, 60000};
    if (options.payloads.empty() && options.quick) wishes.payloads = {64, 60000};
    return wishes;
}

Figures runOnce(const Scenario& scenario, const Case& chosen, const Effort& effort) {
    try {
        const Figures figures = scenario.run(chosen, effort);
        const auto messages = figures.find("messages");
        const auto wanted = static_cast<double>(effort.measured.messages);
        expect(messages == figures.end() || messages->second >= wanted, "it ended too early");
        return figures;
    } catch (const Failure& failure) {
        throw Failure(scenario.name() + ", " + chosen.peer->name + ", " + nameOf(chosen.placement) + ", " +
                      std::to_string(chosen.payload) + " bytes, " + std::to_string(chosen.population) + ": " +
                      failure.what());
    }
}

/// Runs every case once, then all of them again, so that what else the machine does hits all alike.
Records measure(const Scenario& scenario, const Wishes& wishes, unsigned repeat) {
    const std::vector<Case> cases = scenario.cases(wishes);
    std::vector<std::vector<Figures>> runs(cases.size());
    for (unsigned round = 0; round < repeat; ++round) {
        for (std::size_t i = 0; i < cases.size(); ++i) {
            runs[i].push_back(runOnce(scenario, cases[i], wishes.effort));
        }
    }
    Records records;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        records.push_back({scenario.name(), cases[i].peer->name, cases[i].placement, cases[i].payload,
                           cases[i].population, spreadsOf(runs[i])});
    }
    return records;
}

/// Writes to the terminal, and again to what is kept.
class Paper {
public:
    template <class Print>
    void write(const Print& print) {
        std::ostringstream part;
        print(part);
        std::cout << part.str() << std::flush;
        whole_ += part.str();
    }
    const std::string& whole() const { return whole_; }

private:
    std::string whole_;
};

void introduce(std::ostream& out, const Machine& machine, const PeerList& peers, const Options& options) {
    out << "Taken on " << machine.date << ": " << machine.processor << ", " << machine.cores << " cores, "
        << machine.kernel << ", " << machine.compiler << "; load before the run " << machine.load << "; medians of "
        << options.repeat << (options.repeat == 1 ? " run" : " runs") << ".\n";
    for (const std::string& name : peers.absent) out << "Left out, since this machine lacks it: " << name << ".\n";
}

int run(const Options& options) {
    if (!options.from.empty()) {
        drawPlots(options.plots, readJson(options.from));
        return 0;
    }
    const PeerList peers = allPeers();
    const Machine machine = thisMachine();
    const Wishes wishes = wishesFrom(options, peers);
    Paper paper;
    Records records;
    paper.write([&](std::ostream& out) { introduce(out, machine, peers, options); });
    for (const auto& scenario : allScenarios()) {
        if (!wanted(options.scenarios, scenario->name())) continue;
        const Records measured = measure(*scenario, wishes, scenario->repeats(options.repeat));
        records.insert(records.end(), measured.begin(), measured.end());
        paper.write([&](std::ostream& out) { printTable(out, *scenario, measured); });
    }
    if (!options.quick) paper.write([&](std::ostream& out) { printTargets(out, records); });
    if (!options.json.empty()) writeJson(options.json, machine, records);
    if (!options.plots.empty()) drawPlots(options.plots, records);
    if (!options.markdown.empty()) std::ofstream(options.markdown) << "# Figures\n\n" << paper.whole();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures LinxIpc and other ways for processes to talk, side by side."};
    app.add_flag("--quick", options.quick, "only see that everything works; the figures mean little");
    app.add_option("--scenario", options.scenarios, "only these")->check(CLI::IsMember(scenarioNames()));
    app.add_option("--peer", options.peers, "only these")->check(CLI::IsMember(peerNames()));
    app.add_option("--payload", options.payloads, "bytes, 16 to 65532")->check(CLI::Range(16, 65532));
    app.add_option("--repeat", options.repeat, "runs of each case")->check(CLI::Range(1, 100))->capture_default_str();
    app.add_option("--json", options.json, "file for everything that was measured");
    app.add_option("--markdown", options.markdown, "file for what is printed");
    CLI::Option* plots = app.add_option("--plots", options.plots, "directory for drawings, by gnuplot");
    app.add_option("--from", options.from, "draw what an earlier run wrote to this file by --json, measure nothing")
        ->check(CLI::ExistingFile)
        ->needs(plots);
    CLI11_PARSE(app, argc, argv);
    if (options.quick && app.count("--repeat") == 0) options.repeat = 1;
    setenv("LINX_LOG_LEVEL", "0", 1);  // senders whose receiver has ended would fill the log
    prepareForCrews();
    try {
        return run(options);
    } catch (const Failure& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
