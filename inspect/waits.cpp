#include "inspect/waits.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace linx {
namespace inspect {
namespace {

/// Follows the edges from `start`; the cycle that this leads into, from where it is entered.
std::vector<Spid> cycleFrom(Spid start, const std::unordered_map<Spid, Spid>& waitsFor) {
    std::vector<Spid> way;
    for (Spid at = start;;) {
        const auto seen = std::find(way.begin(), way.end(), at);
        if (seen != way.end()) return {seen, way.end()};
        way.push_back(at);
        const auto next = waitsFor.find(at);
        if (next == waitsFor.end()) return {};
        at = next->second;
    }
}

}  // namespace

std::vector<Edge> edgesOf(const std::vector<Endpoint>& endpoints) {
    std::vector<Edge> edges;
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.state == State::ended || endpoint.state == State::dead || !endpoint.wait) continue;
        const Wait& wait = *endpoint.wait;
        if (wait.numbers.empty() || wait.to == Spid::none || wait.to == endpoint.spid) continue;
        edges.push_back({endpoint.spid, wait.to, wait.sent, wait.numbers.front(), wait.since});
    }
    return edges;
}

std::vector<std::vector<Spid>> cyclesOf(const std::vector<Edge>& edges) {
    std::unordered_map<Spid, Spid> waitsFor;
    for (const Edge& edge : edges) waitsFor[edge.from] = edge.to;
    std::vector<std::vector<Spid>> cycles;
    std::unordered_set<Spid> met;
    for (const Edge& edge : edges) {
        const std::vector<Spid> cycle = cycleFrom(edge.from, waitsFor);
        if (cycle.empty() || cycle.front() != edge.from || met.count(edge.from) != 0) continue;
        met.insert(cycle.begin(), cycle.end());
        cycles.push_back(cycle);
    }
    return cycles;
}

}  // namespace inspect
}  // namespace linx
