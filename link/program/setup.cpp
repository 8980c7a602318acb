#include "link/program/setup.h"

#include <cstdio>

#include "link/configuration/key_file.h"

namespace linx::link {
namespace {

void print(const std::string& path, const Problems& problems) {
    for (const Problem& problem : problems) {
        const std::string line = problem.line == 0 ? "" : ":" + std::to_string(problem.line);
        std::fprintf(stderr, "%s%s: %s\n", path.c_str(), line.c_str(), problem.text.c_str());
    }
}

std::optional<KeyPair> readKeys(const Configuration& configuration) {
    std::string trouble;
    const std::optional<std::string> secret = readKeyFile(configuration.key, trouble);
    if (!secret) {
        print(configuration.key, {{0, trouble}});
        return std::nullopt;
    }
    return keyPairOf(*secret);
}

}  // namespace

std::optional<Setup> readSetup(const std::string& path) {
    Problems problems;
    std::optional<Configuration> configuration = readConfiguration(path, problems);
    if (!configuration) {
        print(path, problems);
        return std::nullopt;
    }
    const std::optional<KeyPair> keys = readKeys(*configuration);
    if (!keys) return std::nullopt;
    for (const LinkConfiguration& link : configuration->links) {
        if (link.peer != keys->publicKey) continue;
        print(path, {{link.line, "peer is the key of this node itself; it has to be that of the other one"}});
        return std::nullopt;
    }
    return Setup{std::move(*configuration), *keys};
}

std::unique_ptr<ZmqEngine> openEngine(const Setup& setup, Trouble& trouble) {
    std::vector<ZmqPeer> peers;
    for (const LinkConfiguration& link : setup.configuration.links) peers.push_back({link.peer, link.connect});
    return ZmqEngine::open(setup.keys, setup.configuration.listen, std::move(peers), trouble);
}

}  // namespace linx::link
