#include <CLI/CLI.hpp>

#include "link/program/commands.h"

int main(int argc, char** argv) {
    CLI::App app{
        "Links this node's endpoints with those of other machines. So far it makes keys and reads configurations."};
    app.require_subcommand(1);

    std::string path;
    CLI::App* const keygen =
        app.add_subcommand("keygen", "make a secret key, and print the public one that belongs to it");
    keygen->add_option("FILE", path, "where the secret key goes; a new file, which only its owner can read")
        ->required();
    CLI::App* const check =
        app.add_subcommand("check", "read a configuration and try what it says, without starting");
    check->add_option("CONFIG", path, "the configuration")->required();

    CLI11_PARSE(app, argc, argv);
    return keygen->parsed() ? linx::link::makeKey(path) : linx::link::check(path);
}
