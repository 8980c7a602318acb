#include "inspect/waits.h"

#include <unordered_map>
#include <unordered_set>

namespace linx {
namespace inspect {
namespace {

using WaitsFor = std::unordered_map<Spid, Spid>;

/// Those who wait in a circle. Nobody is passed by twice, however long the ways there are.
std::unordered_set<Spid> allInCycles(const std::vector<Edge>& edges, const WaitsFor& waitsFor) {
    std::unordered_set<Spid> all;
    std::unordered_map<Spid, Spid> passedFrom;  // where the walk began that came by first
    for (const Edge& edge : edges) {
        Spid at = edge.from;
        auto next = waitsFor.find(at);
        while (next != waitsFor.end() && passedFrom.insert({at, edge.from}).second) {
            at = next->second;
            next = waitsFor.find(at);
        }
        if (next == waitsFor.end() || passedFrom[at] != edge.from) continue;
        while (all.insert(at).second) at = waitsFor.at(at);
    }
    return all;
}

}  // namespace

std::vector<Edge> edgesOf(const std::vector<Endpoint>& endpoints) {
    std::vector<Edge> edges;
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.state == State::ended || endpoint.state == State::dead || !endpoint.wait) continue;
        const Wait& wait = *endpoint.wait;
        if (wait.numbers.empty() || wait.to == Spid::none || wait.to == endpoint.spid) continue;
        edges.push_back({endpoint.spid, wait.to, wait.sent, wait.numbers.back(), wait.since});
    }
    return edges;
}

std::vector<std::vector<Spid>> cyclesOf(const std::vector<Edge>& edges) {
    WaitsFor waitsFor;
    for (const Edge& edge : edges) waitsFor[edge.from] = edge.to;
    std::unordered_set<Spid> left = allInCycles(edges, waitsFor);
    std::vector<std::vector<Spid>> cycles;
    for (const Edge& edge : edges) {
        if (left.count(edge.from) == 0) continue;
        std::vector<Spid>& cycle = cycles.emplace_back();
        for (Spid at = edge.from; left.erase(at) != 0; at = waitsFor.at(at)) cycle.push_back(at);
    }
    return cycles;
}

}  // namespace inspect
}  // namespace linx
