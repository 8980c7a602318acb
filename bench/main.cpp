#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>

#include "bench/harness/crew.h"
#include "bench/peers/list.h"
#include "bench/report/table.h"
#include "bench/scenarios/list.h"

namespace {

using namespace bench;

struct Options {
    bool quick = false;
    unsigned repeat = 5;
    std::vector<std::string> scenarios, peers;
    std::vector<std::size_t> payloads;
};

template <class T>
bool Wanted(const std::vector<T>& chosen, const T& value) {
    return chosen.empty() || std::find(chosen.begin(), chosen.end(), value) != chosen.end();
}

Wishes WishesFrom(const Options& options, const PeerList& peers) {
    Wishes wishes;
    for (const auto& peer : peers.present) {
        if (Wanted(options.peers, peer->Name())) wishes.peers.push_back(peer.get());
    }
    wishes.payloads = options.payloads;
    if (options.payloads.empty()) {
        wishes.payloads = options.quick ? std::vector<std::size_t>{64, 60000}
                                        : std::vector<std::size_t>{16, 64, 256, 1024, 4096, 16384, 60000};
    }
    const std::uint64_t millisecond = 1000000;
    wishes.effort = options.quick ? Effort{{0, 64}, {0, 512}, true}
                                  : Effort{{30 * millisecond, 256}, {100 * millisecond, 1024}, false};
    return wishes;
}

/// Runs every case once, then all of them again, so that what else the machine does hits all alike.
Records Measure(const Scenario& scenario, const Wishes& wishes, unsigned repeat) {
    const std::vector<Case> cases = scenario.Cases(wishes);
    std::vector<std::vector<Figures>> runs(cases.size());
    for (unsigned round = 0; round < repeat; ++round) {
        for (std::size_t i = 0; i < cases.size(); ++i) {
            try {
                runs[i].push_back(scenario.Run(cases[i], wishes.effort));
            } catch (const Failure& failure) {
                throw Failure(scenario.Name() + ", " + cases[i].peer->Name() + ", " + NameOf(cases[i].placement) +
                              ", " + std::to_string(cases[i].payload) + " bytes: " + failure.what());
            }
        }
    }
    Records records;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& each = cases[i];
        records.push_back(
            {scenario.Name(), each.peer->Name(), each.placement, each.payload, each.population, SpreadsOf(runs[i])});
    }
    return records;
}

int Run(const Options& options) {
    setenv("LINX_LOG_LEVEL", "0", 1);  // senders whose receiver has ended would fill the log
    const PeerList peers = AllPeers();
    for (const std::string& name : peers.absent)
        std::cout << "Left out, as it was not there to build with: " << name << '\n';
    const Wishes wishes = WishesFrom(options, peers);
    for (const auto& scenario : AllScenarios()) {
        if (!Wanted(options.scenarios, scenario->Name())) continue;
        PrintTable(std::cout, *scenario, Measure(*scenario, wishes, options.repeat));
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures LinxIpc and other ways for processes to talk, side by side."};
    app.add_flag("--quick", options.quick, "only see that everything works; the figures mean little");
    app.add_option("--scenario", options.scenarios, "only these");
    app.add_option("--peer", options.peers, "only these");
    app.add_option("--payload", options.payloads, "bytes, 16 to 65532")->check(CLI::Range(16, 65532));
    app.add_option("--repeat", options.repeat, "runs of each case")->check(CLI::Range(1, 100))->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    PrepareForCrews();
    try {
        return Run(options);
    } catch (const Failure& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
