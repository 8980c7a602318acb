#ifndef LINXIPC_TESTS_LINK_STORM_LINK_LOG_H
#define LINXIPC_TESTS_LINK_STORM_LINK_LOG_H

#include <cstdlib>
#include <sstream>
#include <string>

#include "tests/link/program/nodes.h"
#include "tests/link/storm/books.h"

namespace linkstorm {

/// What the links of a node have logged of each peer, over all their lives.
class LinkLog {
public:
    struct Peer {
        uint32_t ups = 0;
        uint32_t downs = 0;
        uint64_t lost = 0;
        bool isUp = false;
    };

    /// Reads on. What it has taken stays out of the way.
    void read(linktest::Running& link) {
        std::istringstream lines(rest_ + link.takeLog());
        rest_.clear();
        for (std::string line; std::getline(lines, line);) {
            if (lines.eof()) {
                rest_ = line;
            } else {
                take(line);
            }
        }
    }
    /// The process has gone, and its sessions with it.
    void end() {
        rest_.clear();
        for (Peer& peer : peers_) peer.isUp = false;
    }
    const Peer& of(uint32_t node) const { return peers_[node]; }
    uint64_t lost() const { return peers_[0].lost + peers_[1].lost + peers_[2].lost; }
    /// The last lines, for whoever wants to know why.
    const std::string& recent() const { return recent_; }

private:
    static constexpr size_t longestRecent = 3000;

    void take(const std::string& line) {
        recent_ += line + "\n";
        if (recent_.size() > longestRecent) recent_.erase(0, recent_.size() - longestRecent);
        for (uint32_t node = 0; node < nodes; ++node) {
            const std::string name = "linx-link: " + linktest::Nodes::linkTo(node);
            if (line.compare(0, name.size(), name) != 0) continue;
            const std::string text = line.substr(name.size());
            if (text.compare(0, 7, " is up;") == 0) up(peers_[node]);
            if (text.compare(0, 9, " is down:") == 0) down(peers_[node]);
            const std::string lost = ": lost with the session: ";
            if (text.compare(0, lost.size(), lost) == 0) peers_[node].lost += sumOf(text.substr(lost.size()));
        }
    }
    static void up(Peer& peer) {
        ++peer.ups;
        peer.isUp = true;
    }
    static void down(Peer& peer) {
        ++peer.downs;
        peer.isUp = false;
    }
    /// Of "server1 12, ended ones 3".
    static uint64_t sumOf(const std::string& text) {
        uint64_t sum = 0;
        std::istringstream parts(text);
        for (std::string part; std::getline(parts, part, ',');) {
            sum += std::strtoull(part.c_str() + part.rfind(' '), nullptr, 10);
        }
        return sum;
    }

    Peer peers_[nodes];
    std::string rest_;
    std::string recent_;
};

}  // namespace linkstorm

#endif
