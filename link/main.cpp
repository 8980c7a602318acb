#include <CLI/CLI.hpp>

#include "link/program/commands.h"

int main(int argc, char** argv) {
    CLI::App app{
        "Makes endpoints on other machines reachable here, and some of here reachable there: one process a node, "
        "for all of its links."};
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", std::string("linx-link " LINXIPC_VERSION));

    std::string path;
    app.add_option("CONFIG", path, "the configuration; runs until SIGTERM");
    CLI::App* const keygen = app.add_subcommand("keygen", "make a secret key, and print its public one");
    keygen->add_option("FILE", path, "where the secret key goes: a new file, which only its owner can read")
        ->required();
    CLI::App* const check =
        app.add_subcommand("check", "read a configuration and try what it says, without starting");
    check->add_option("CONFIG", path, "the configuration")->required();

    CLI11_PARSE(app, argc, argv);
    if (keygen->parsed()) return linx::link::makeKey(path);
    if (check->parsed()) return linx::link::check(path);
    if (path.empty()) return app.exit(CLI::RequiredError("A configuration, or a subcommand,"));
    return linx::link::run(path);
}
