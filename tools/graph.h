#ifndef LINXIPC_TOOLS_GRAPH_H
#define LINXIPC_TOOLS_GRAPH_H

#include <string>
#include <vector>

#include "inspect/traffic.h"
#include "tools/named_waits.h"
#include "tools/table.h"

namespace tools {

/// As much of a name as a drawing has room for.
constexpr size_t longestLabel = 32;

/// Who sends to whom and waits for whom, by name: one that was opened again under its name is the same.
struct Graph {
    struct Node {
        std::string name;
        std::string state;  ///< see wordFor; "gone" where its slot has gone to another
    };
    struct Traffic {
        std::string from;
        std::string to;
        std::map<uint32_t, linx::inspect::Volume> numbers;
        linx::inspect::Volume all;
        std::optional<double> perSecond;
    };

    std::vector<Node> nodes;       ///< those at the ends of what follows, by name
    std::vector<Traffic> traffic;  ///< the busiest first
    NamedWaits waits;
};

/// From the records of these endpoints since a time, see recordsOf; with names, only what goes from or to one of them.
Graph graphOf(const linx::Arena& arena, const std::vector<linx::inspect::Endpoint>& endpoints,
              const std::vector<std::string>& names, uint64_t firstTime);

/// The same with so many ways of traffic at most, and with the nodes that are left.
Graph busiestOf(const Graph& graph, size_t most);

/// In the language of Graphviz.
std::string dotOf(const Graph& graph);

Table trafficTable(const Graph& graph);

/// "2000 (12), 2001 (3)", the most frequent first, and how many more there are: "2 more".
std::string numbersOf(const Graph::Traffic& traffic, const std::string& separator = ", ");

/// Signals a second, "-" where that is not known.
std::string rateOf(const Graph::Traffic& traffic);

}  // namespace tools

#endif
