#include "link/program/commands.h"

#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "host/system/scoped_descriptor.h"
#include "link/configuration/key_file.h"
#include "link/engine/zeromq/keys.h"
#include "link/program/node.h"

namespace linx::link {
namespace {

int complain(const std::string& path, const std::string& trouble) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), trouble.c_str());
    return EXIT_FAILURE;
}

/// Readable from the first of the signals that end this process. They are blocked from now on, in all threads to
/// come.
int endingSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGTERM, SIGINT}) sigaddset(&ending, number);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    return signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Each proxy takes some descriptors.
void raiseDescriptorLimit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int makeKey(const std::string& path) {
    if (!canEncrypt()) return complain("linx-link", noEncryption);
    const KeyPair keys = newKeyPair();
    std::string trouble;
    if (!writeKeyFile(path, keys.secretKey, trouble)) return complain(path, trouble);
    if (std::printf("%s\n", keys.publicKey.c_str()) > 0 && std::fflush(stdout) == 0) return EXIT_SUCCESS;
    // Nobody has seen the public key, without which the other one is of no use.
    unlink(path.c_str());
    return complain("linx-link", "the public key could not be printed");
}

int check(const std::string& path) {
    const std::optional<Setup> setup = readSetup(path);
    if (!setup) return EXIT_FAILURE;
    Trouble trouble;
    const bool canListen = openEngine(*setup, trouble) != nullptr;
    if (!canListen && trouble.error != EADDRINUSE) return complain(path, trouble.text);
    std::printf("%s is in order.\n", path.c_str());
    std::printf("public key    %s\n", setup->keys.publicKey.c_str());
    const std::string& listen = setup->configuration.listen;
    if (!listen.empty())
        std::printf("listens at    %s%s\n", listen.c_str(), canListen ? "" : " (which is in use now)");
    for (const LinkConfiguration& link : setup->configuration.links) {
        const std::string way = link.connect.empty() ? "waits for its peer" : "dials " + link.connect;
        std::printf("link          %s, %s\n", link.name.c_str(), way.c_str());
    }
    return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run(const std::string& path) {
    const std::optional<Setup> setup = readSetup(path);
    if (!setup) return EXIT_FAILURE;
    const std::string& domain = setup->configuration.domain;
    if (!domain.empty()) setenv("LINX_DOMAIN", domain.c_str(), 1);
    const ScopedDescriptor stop(endingSignals());
    Trouble trouble;
    const std::unique_ptr<ZmqEngine> engine = openEngine(*setup, trouble);
    if (!engine) return complain(path, trouble.text);
    raiseDescriptorLimit();
    Node node(*setup, *engine);
    const std::string failure = node.open();
    if (!failure.empty()) return complain(path, failure);
    try {
        node.run(stop.get());
    } catch (const DomainLost&) {
        return complain("linx-link", "the domain is of no use any more");
    }
    return EXIT_SUCCESS;
}

}  // namespace linx::link
