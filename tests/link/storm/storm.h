#ifndef LINXIPC_TESTS_LINK_STORM_STORM_H
#define LINXIPC_TESTS_LINK_STORM_STORM_H

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <set>

#include "tests/kit/child.h"
#include "tests/link/program/nodes.h"
#include "tests/link/storm/books.h"
#include "tests/link/storm/link_log.h"

namespace linkstorm {

using Clock = std::chrono::steady_clock;

struct Figures {
    uint32_t serverKills = 0;
    uint32_t linkKills = 0;
    uint32_t serverStops = 0;
    uint32_t shortStops = 0;
    uint32_t longStops = 0;
    uint32_t strikes = 0;
    uint64_t lostWithSessions = 0;  ///< and the link that lost them lived to count
    uint64_t lostWithLinks = 0;     ///< and it was killed
    uint64_t countedByLinks = 0;
    uint64_t uncounted = 0;
    size_t mostDescriptors = 0;
    Clock::duration longestRecovery{};
};

/// Domains with a link between every two and servers in each, and who kills, stops and replaces them. After every
/// strike all have to find and answer each other again; then the books are looked through.
class Storm {
public:
    Storm(Books& books, uint32_t seed);
    ~Storm();

    /// Strikes until so many have been killed; then all come to rest. Stops early when somebody complains.
    void rage(uint32_t kills);

    const Figures& figures() const { return figures_; }
    uint32_t kills() const { return figures_.serverKills + figures_.linkKills; }

private:
    /// What one strike has done, and what may come of it.
    struct Strike {
        std::set<uint32_t> servers;  ///< killed
        std::set<uint32_t> stoppedServers;
        std::set<uint32_t> links;  ///< killed
        std::set<uint32_t> stoppedLinks;
        std::set<uint32_t> silentLinks;  ///< stopped for longer than the tolerance
        uint64_t counted[nodes][nodes] = {};
        uint32_t ups[nodes][nodes] = {};
        uint32_t downs[nodes][nodes] = {};
    };

    void spawn(uint32_t seat);
    void startLink(uint32_t node);
    Strike prepare();
    void announce(const Strike& strike);
    void strike();
    void perform(const Strike& strike);
    void killServer(uint32_t seat);
    void killLink(uint32_t node);
    void awaitSilence(const Strike& strike);
    bool areSessionsBack(const Strike& strike) const;
    bool areAllHeard() const;
    void recover(const Strike& strike);
    void audit(const Strike& strike);
    void auditStream(const Strike& strike, uint32_t from, uint32_t to, const Stream& stream,
                     uint64_t (&lost)[nodes][nodes]);
    bool endsSession(const Strike& strike, uint32_t node, uint32_t other) const;
    void rest();
    bool isDelivered() const;
    void compareDescriptors();
    void auditCounts();
    void calm();
    void readLogs();
    bool await(const std::string& what, const std::function<bool()>& condition);
    void pause(uint32_t microseconds);
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    Books& books_;
    std::mt19937 random_;
    const std::array<linxtest::TestDomain, nodes> domains_;
    const linktest::Nodes nodes_;
    std::array<std::unique_ptr<linktest::Running>, nodes> links_;
    std::array<LinkLog, nodes> logs_;
    std::array<std::unique_ptr<Child>, seats> servers_;
    std::array<std::array<uint32_t, seats>, seats> audited_{};
    std::array<size_t, nodes> descriptors_{};  ///< of each link, when all was quiet at first
    Figures figures_;
};

}  // namespace linkstorm

#endif
