#include "inspect/waits.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/system/clock.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Edge;
using linx::inspect::Endpoint;

namespace {

using Cycles = std::vector<std::vector<std::string>>;

/// An edge with the names of its ends.
struct Named {
    std::string from;
    std::string to;
    uint32_t number;
    uint32_t sent;
    double seconds;
    bool isInCycle;
};

struct Waits {
    std::vector<Named> edges;
    Cycles cycles;
};

Waits waitsIn(const Options& options) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place);
    const linx::Arena& arena = snapshot->arena();
    const std::vector<Edge> edges = linx::inspect::edgesOf(linx::inspect::endpointsOf(arena, place));
    const auto cycles = linx::inspect::cyclesOf(edges);
    const auto isInCycle = [&](linx::Spid spid) {
        return std::any_of(cycles.begin(), cycles.end(), [&](const std::vector<linx::Spid>& cycle) {
            return std::find(cycle.begin(), cycle.end(), spid) != cycle.end();
        });
    };
    Waits waits;
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

nlohmann::ordered_json toJson(const Waits& waits) {
    nlohmann::ordered_json edges = nlohmann::ordered_json::array();
    for (const Named& edge : waits.edges) {
        edges.push_back({{"from", edge.from},
                         {"to", edge.to},
                         {"number", edge.number},
                         {"sent", edge.sent},
                         {"seconds", edge.seconds}});
    }
    return {{"edges", edges}, {"cycles", waits.cycles}};
}

void printDot(const Waits& waits) {
    printLine("digraph waits {");
    for (const Named& edge : waits.edges) {
        printLine("    " + dotWord(edge.from) + " -> " + dotWord(edge.to) + " [label=\"" + std::to_string(edge.sent) +
                  " -> " + std::to_string(edge.number) + ", " + humanSeconds(edge.seconds) + "\"" +
                  (edge.isInCycle ? ", color=red" : "") + "];");
    }
    printLine("}");
}

void printText(const Waits& waits) {
    constexpr Table::Align right = Table::Align::right;
    Table table({{"NAME"}, {"WAITS FOR"}, {"SINCE", right}, {"SENT", right}, {"AWAITS", right}});
    for (const Named& edge : waits.edges) {
        table.add({printable(edge.from), printable(edge.to), humanSeconds(edge.seconds), std::to_string(edge.sent),
                   std::to_string(edge.number)},
                  edge.isInCycle);
    }
    table.print();
    for (const auto& cycle : waits.cycles) {
        std::string way;
        for (const std::string& name : cycle) way += printable(name) + " -> ";
        printLine(red("cycle") + ": " + way + printable(cycle.front()));
    }
}

}  // namespace

int waits(const Options& options, const WaitsOptions& what) {
    Waits found = waitsIn(options);
    limit(found.edges, options);
    if (options.json) {
        printJson(toJson(found));
    } else if (what.dot) {
        printDot(found);
    } else {
        printText(found);
    }
    return done;
}

}  // namespace tools
