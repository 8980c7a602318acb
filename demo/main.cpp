#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <random>

#include "demo/launcher.h"
#include "demo/options.h"
#include "demo/servers/servers.h"

namespace {

std::uint64_t randomSeed() {
    return std::random_device()() % 1000000U;
}

std::string usualLink() {
    std::error_code error;
    return (std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "../link/linx-link").string();
}

int demonstrate(const demo::Options& options, bool list) {
    if (!list) return demo::launch(options);
    demo::listCapabilities(options);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    demo::Options options;
    options.seed = randomSeed();
    options.link = usualLink();
    bool list = false;
    CLI::App app{"Nine servers of a device on one machine: shows what endpoints can do, and that it happened."};
    app.add_option("--rounds", options.rounds, "how often the stream runs and a server is killed, 1 to 1000")
        ->check(CLI::Range(1U, demo::maxRounds))
        ->capture_default_str();
    app.add_option("--payload", options.payload, "bytes of one stream, 1 to 1048576")
        ->check(CLI::Range(1U, demo::maxPayload))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "start order and content of the streams (default: a new one each time)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--limit", options.limit, "seconds until the demonstration gives up, 1 to 3600")
        ->check(CLI::Range(1U, demo::maxLimit))
        ->capture_default_str();
    app.add_flag("--no-color", options.noColor, "no colours, also on a terminal");
    app.add_option("--servers", options.servers, "another build of this program, for the servers")
        ->check(CLI::ExistingFile);
    app.add_flag("--nodes", options.nodes, "with two further nodes, each a domain of its own behind a link");
    app.add_option("--link", options.link, "the program linx-link (default: that of this build)")
        ->check(CLI::ExistingFile);
    app.add_flag("--list", list, "say what would be shown, and end");

    // How the launcher starts its servers.
    std::string name;
    demo::Wiring wiring;
    CLI::App* serve = app.add_subcommand("serve")->group("");
    serve->add_option("name", name)->required();
    serve->add_option("--reports", wiring.reports)->required();
    serve->add_option("--front-panel", wiring.frontPanel)->required();
    serve->add_option("--seed", wiring.seed)->required();
    serve->add_option("--payload", wiring.payload)->required();
    serve->add_option("--limit", wiring.limit)->required();

    CLI11_PARSE(app, argc, argv);
    if (!serve->parsed()) return demonstrate(options, list);
    prctl(PR_SET_NAME, name.c_str());  // of the process, which was started as /proc/self/exe
    return demo::runServer(name, wiring);
}
