#include "tools/named_waits.h"

#include <algorithm>

#include "tools/look.h"
#include "tools/text.h"

namespace tools {

using linx::inspect::Edge;
using linx::inspect::Endpoint;

NamedWaits namedWaits(const linx::Arena& arena, const std::vector<Endpoint>& endpoints) {
    const std::vector<Edge> edges = linx::inspect::edgesOf(endpoints);
    const auto cycles = linx::inspect::cyclesOf(edges);
    const auto isInCycle = [&](linx::Spid spid) {
        return std::any_of(cycles.begin(), cycles.end(), [&](const std::vector<linx::Spid>& cycle) {
            return std::find(cycle.begin(), cycle.end(), spid) != cycle.end();
        });
    };
    NamedWaits waits;
    for (const Edge& edge : edges) {
        waits.edges.push_back({nameIn(arena, edge.from), nameIn(arena, edge.to), edge.number, edge.sent,
                               secondsSince(edge.since), isInCycle(edge.from)});
    }
    for (const auto& cycle : cycles) {
        std::vector<std::string> names;
        for (const linx::Spid spid : cycle) names.push_back(nameIn(arena, spid));
        waits.cycles.push_back(std::move(names));
    }
    return waits;
}

std::string wayRound(const std::vector<std::string>& cycle) {
    std::string way;
    for (const std::string& name : cycle) way += printable(name) + " -> ";
    return way + printable(cycle.front());
}

}  // namespace tools
