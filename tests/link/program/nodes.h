#ifndef LINXIPC_TESTS_LINK_PROGRAM_NODES_H
#define LINXIPC_TESTS_LINK_PROGRAM_NODES_H

#include <cstring>
#include <memory>

#include "tests/kit/program.h"
#include "tests/link/program/running.h"

namespace linktest {

/// Domains of this machine with a linx-link each, and a link between every two of them: the others reach the first
/// one as "toA", the second as "toB", and so on. Everything is exported, and control allowed.
class Nodes {
public:
    /// `domains` are directories; `more` stands in every [[link]].
    explicit Nodes(const std::vector<std::string>& domains, const std::string& more = "") {
        std::string name = testing::TempDir() + "linx-nodes.XXXXXX";
        directory_ = mkdtemp(name.data());
        std::vector<std::unique_ptr<TakenPort>> ports;  // at the same time, so that no two are alike
        std::vector<std::string> keys;
        for (size_t node = 0; node < domains.size(); ++node) {
            ports.push_back(std::make_unique<TakenPort>());
            keys.push_back(makeKey(node));
        }
        for (size_t node = 0; node < domains.size(); ++node) {
            std::ofstream file(directory_ + "/" + configurationOf(node));
            file << "key = \"" << node << ".key\"\nlisten = \"" << ports[node]->address() << "\"\ndomain = \""
                 << domains[node] << "\"\n";
            for (size_t peer = 0; peer < domains.size(); ++peer) {
                if (peer == node) continue;
                file << "[[link]]\nname = \"" << linkTo(peer) << "\"\npeer = \"" << keys[peer]
                     << "\"\nexport = [\"*\"]\nallow-control = true\n"
                     << more;
                if (peer < node) file << "connect = \"" << ports[peer]->address() << "\"\n";
            }
        }
    }
    ~Nodes() { std::filesystem::remove_all(directory_); }
    Nodes(const Nodes&) = delete;
    Nodes& operator=(const Nodes&) = delete;

    static std::string linkTo(size_t node) { return std::string("to") + static_cast<char>('A' + node); }

    std::unique_ptr<Running> start(size_t node) const {
        const linxtest::ScopedVariable log("LINX_LOG", "stderr");
        const linxtest::ScopedVariable level("LINX_LOG_LEVEL", nullptr);
        return std::make_unique<Running>(directory_, configurationOf(node));
    }

private:
    static std::string configurationOf(size_t node) { return std::to_string(node) + ".conf"; }

    std::string makeKey(size_t node) const {
        const Ends ends = openPipe();
        Program program(LINX_LINK, {"keygen", directory_ + "/" + std::to_string(node) + ".key"},
                        {-1, ends.write, -1});
        close(ends.write);
        char text[100] = {};
        EXPECT_LT(0, read(ends.read, text, sizeof text - 1));
        close(ends.read);
        EXPECT_EQ(program.awaitEnd(), 0);
        return std::string(text, strcspn(text, "\n"));
    }

    std::string directory_;
};

}  // namespace linktest

#endif
