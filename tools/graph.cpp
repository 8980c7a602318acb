#include "tools/graph.h"

#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/graphviz.h"
#include "tools/look.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using Json = nlohmann::ordered_json;

namespace {

Json toJson(const Graph::Traffic& edge) {
    Json numbers = Json::array();
    for (const auto& [number, volume] : edge.numbers)
        numbers.push_back({{"number", number}, {"signals", volume.signals}, {"bytes", volume.bytes}});
    return {{"kind", "sent"},          {"from", edge.from},
            {"to", edge.to},           {"signals", edge.all.signals},
            {"bytes", edge.all.bytes}, {"per_second", edge.perSecond ? Json(*edge.perSecond) : Json(nullptr)},
            {"numbers", numbers}};
}

Json toJson(const NamedWait& edge) {
    return {{"kind", "waits"},   {"from", edge.from},       {"to", edge.to},          {"number", edge.number},
            {"sent", edge.sent}, {"seconds", edge.seconds}, {"cycle", edge.isInCycle}};
}

Json toJson(const Graph& graph) {
    Json nodes = Json::array();
    for (const Graph::Node& node : graph.nodes) nodes.push_back({{"name", node.name}, {"state", node.state}});
    Json edges = Json::array();
    for (const Graph::Traffic& edge : graph.traffic) edges.push_back(toJson(edge));
    for (const NamedWait& edge : graph.waits.edges) edges.push_back(toJson(edge));
    return {{"nodes", nodes}, {"edges", edges}};
}

}  // namespace

int graph(const Options& options, const GraphOptions& what) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place);
    const auto endpoints = linx::inspect::endpointsOf(snapshot->arena(), place);
    requireNames(endpoints, what.names);
    Graph found = graphOf(snapshot->arena(), endpoints, what.names, firstTimeFor(options));
    if (options.count) found = busiestOf(found, *options.count);
    if (options.json) {
        printJson(toJson(found));
    } else if (what.dot) {
        printLine(dotOf(found));
    } else {
        printLine(drawnByGraphviz(dotOf(found), options.timeout));
    }
    return done;
}

}  // namespace tools
