#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "host/arena/slot_table.h"
#include "tools/graph.h"
#include "tools/look.h"
#include "tools/rates.h"
#include "tools/text.h"

namespace tools {

using linx::inspect::Endpoint;
using linx::inspect::Flow;

namespace {

using Ends = std::pair<std::string, std::string>;

std::map<Ends, Graph::Traffic> trafficByName(const linx::Arena& arena, const std::vector<Flow>& flows) {
    std::map<Ends, Graph::Traffic> traffic;
    for (const Flow& flow : flows) {
        const Ends ends(nameIn(arena, flow.from), nameIn(arena, flow.to));
        Graph::Traffic& edge = traffic[ends];
        std::tie(edge.from, edge.to) = ends;
        for (const auto& [number, volume] : flow.numbers) {
            edge.numbers[number].add(volume);
            edge.all.add(volume);
        }
        // What an endpoint did that has ended since is counted, but says nothing of how fast it goes now.
        const bool isNow = isOpen(arena, flow.from) && isOpen(arena, flow.to);
        if (isNow || !edge.perSecond) edge.perSecond = flow.perSecond;
    }
    return traffic;
}

template <class Edge>
void keepThoseOf(const std::vector<std::string>& names, std::vector<Edge>& edges) {
    const auto isOthers = [&](const Edge& edge) { return !isAmong(edge.from, names) && !isAmong(edge.to, names); };
    edges.erase(std::remove_if(edges.begin(), edges.end(), isOthers), edges.end());
}

std::set<std::string> endsOf(const Graph& graph) {
    std::set<std::string> ends;
    for (const auto& edge : graph.traffic) ends.insert({edge.from, edge.to});
    for (const auto& edge : graph.waits.edges) ends.insert({edge.from, edge.to});
    return ends;
}

}  // namespace

Graph graphOf(const linx::Arena& arena, const std::vector<Endpoint>& endpoints, const std::vector<std::string>& names,
              uint64_t firstTime) {
    Graph graph;
    graph.waits = namedWaits(arena, endpoints);
    // Of all records: what goes to those names is recorded by others.
    for (auto& [ends, edge] :
         trafficByName(arena, linx::inspect::flowsOf(recordsOf(arena, endpoints, {}, firstTime))))
        graph.traffic.push_back(std::move(edge));
    keepThoseOf(names, graph.traffic);
    keepThoseOf(names, graph.waits.edges);
    std::stable_sort(graph.traffic.begin(), graph.traffic.end(),
                     [](const Graph::Traffic& a, const Graph::Traffic& b) { return a.all.signals > b.all.signals; });
    std::map<std::string, const char*> states;
    for (const Endpoint& endpoint : endpoints) states.insert({endpoint.name, wordFor(endpoint.state)});
    std::set<std::string> shown = endsOf(graph);
    shown.insert(names.begin(), names.end());
    for (const std::string& name : shown) {
        const auto known = states.find(name);
        graph.nodes.push_back({name, known == states.end() ? "gone" : known->second});
    }
    return graph;
}

Graph busiestOf(const Graph& graph, size_t most) {
    Graph busiest = graph;
    if (busiest.traffic.size() <= most) return busiest;
    busiest.traffic.erase(busiest.traffic.begin() + static_cast<std::ptrdiff_t>(most), busiest.traffic.end());
    const std::set<std::string> left = endsOf(busiest);
    const auto isAlone = [&](const Graph::Node& node) { return left.count(node.name) == 0; };
    busiest.nodes.erase(std::remove_if(busiest.nodes.begin(), busiest.nodes.end(), isAlone), busiest.nodes.end());
    return busiest;
}

std::string numbersOf(const Graph::Traffic& traffic, const std::string& separator) {
    constexpr size_t most = 3;
    std::vector<std::pair<uint64_t, uint32_t>> numbers;
    for (const auto& [number, volume] : traffic.numbers) numbers.push_back({volume.signals, number});
    std::stable_sort(numbers.begin(), numbers.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::string text;
    for (size_t i = 0; i < std::min(most, numbers.size()); ++i) {
        text += (i == 0 ? "" : separator) + std::to_string(numbers[i].second) + " (" +
                std::to_string(numbers[i].first) + ")";
    }
    return numbers.size() > most ? text + separator + std::to_string(numbers.size() - most) + " more" : text;
}

std::string rateOf(const Graph::Traffic& traffic) {
    if (!traffic.perSecond) return "-";
    return *traffic.perSecond < 0.05 ? "under 0.1" : humanRate(*traffic.perSecond);
}

Table trafficTable(const Graph& graph) {
    constexpr Table::Align right = Table::Align::right;
    Table table(
        {{"FROM"}, {"TO"}, {"SIGNALS", right}, {"BYTES", right}, {"PER SECOND", right}, {"NUMBERS (SIGNALS)"}});
    for (const Graph::Traffic& edge : graph.traffic) {
        table.add({printable(edge.from), printable(edge.to), std::to_string(edge.all.signals),
                   humanBytes(edge.all.bytes), rateOf(edge), numbersOf(edge)});
    }
    return table;
}

}  // namespace tools
