#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/look.h"
#include "tools/tables.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

namespace {

nlohmann::ordered_json toJson(const NamedWaits& waits) {
    nlohmann::ordered_json edges = nlohmann::ordered_json::array();
    for (const NamedWait& edge : waits.edges) {
        edges.push_back({{"from", edge.from},
                         {"to", edge.to},
                         {"number", edge.number},
                         {"sent", edge.sent},
                         {"seconds", edge.seconds}});
    }
    return {{"edges", edges}, {"cycles", waits.cycles}};
}

void printDot(const NamedWaits& waits) {
    printLine("digraph waits {");
    for (const NamedWait& edge : waits.edges) {
        printLine("    " + dotWord(edge.from) + " -> " + dotWord(edge.to) + " [label=\"" + std::to_string(edge.sent) +
                  " -> " + std::to_string(edge.number) + ", " + humanSeconds(edge.seconds) + "\"" +
                  (edge.isInCycle ? ", color=red" : "") + "];");
    }
    printLine("}");
}

}  // namespace

Table waitsTable(const NamedWaits& waits) {
    constexpr Table::Align right = Table::Align::right;
    Table table({{"NAME"}, {"WAITS FOR"}, {"SINCE", right}, {"SENT", right}, {"AWAITS", right}});
    for (const NamedWait& edge : waits.edges) {
        table.add({printable(edge.from), printable(edge.to), humanSeconds(edge.seconds), std::to_string(edge.sent),
                   std::to_string(edge.number)},
                  edge.isInCycle);
    }
    return table;
}

int waits(const Options& options, const WaitsOptions& what) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place);
    const linx::Arena& arena = snapshot->arena();
    NamedWaits found = namedWaits(arena, linx::inspect::endpointsOf(arena, place));
    limit(found.edges, options);
    if (options.json) {
        printJson(toJson(found));
    } else if (what.dot) {
        printDot(found);
    } else {
        waitsTable(found).print();
        for (const auto& cycle : found.cycles) printLine(red("cycle") + ": " + wayRound(cycle));
    }
    return done;
}

}  // namespace tools
