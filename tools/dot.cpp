// The graph in the language of Graphviz. Where it is drawn into a page, the classes are what the page's style goes
// by.

#include <algorithm>
#include <map>

#include "tools/graph.h"
#include "tools/text.h"

namespace tools {
namespace {

/// Wide ones stand for many signals: each tenfold is one wider.
std::string widthFor(uint64_t signals) {
    size_t width = 1;
    for (; signals >= 10; signals /= 10) ++width;
    return std::to_string(std::min<size_t>(width, 5));
}

template <class Edge>
std::string tooltipOf(const Edge& edge) {
    return ", tooltip=" + dotWord(edge.from + " -> " + edge.to);
}

std::string lineOf(const Graph::Traffic& edge) {
    const std::string rate = edge.perSecond ? "\\n" + rateOf(edge) + " a second" : "";
    return "label=\"" + numbersOf(edge, "\\n") + rate + "\", penwidth=" + widthFor(edge.all.signals) +
           ", class=\"sent\"" + tooltipOf(edge);
}

std::string lineOf(const NamedWait& edge) {
    const std::string colours =
        edge.isInCycle ? ", color=red, fontcolor=red, class=\"waits cycle\"" : ", class=\"waits\"";
    return "label=\"waits for " + std::to_string(edge.number) + "\\n" + humanSeconds(edge.seconds) +
           "\", style=dashed" + colours + tooltipOf(edge);
}

std::string lineOf(const Graph::Node& node) {
    const bool isThere = node.state != "dead" && node.state != "ended" && node.state != "gone";
    return "label=" + dotWord(shortened(printable(node.name), longestLabel)) +
           ", tooltip=" + dotWord(node.name + ": " + node.state) + ", class=\"" + node.state + "\"" +
           (isThere ? "" : ", style=\"rounded,dashed\", color=gray, fontcolor=gray");
}

}  // namespace

std::string dotOf(const Graph& graph) {
    std::string text =
        "digraph linx {\n"
        "    bgcolor=transparent;\n"
        "    node [shape=box, style=rounded, fontname=\"sans-serif\", fontsize=12];\n"
        "    edge [fontname=\"sans-serif\", fontsize=10];\n";
    // Numbered, as two names may be written alike.
    std::map<std::string, std::string> nodes;
    for (const Graph::Node& node : graph.nodes) {
        const std::string& id = nodes[node.name] = "n" + std::to_string(nodes.size());
        text += "    " + id + " [" + lineOf(node) + "];\n";
    }
    const auto add = [&](const auto& edge) {
        text += "    " + nodes[edge.from] + " -> " + nodes[edge.to] + " [" + lineOf(edge) + "];\n";
    };
    for (const Graph::Traffic& edge : graph.traffic) add(edge);
    for (const NamedWait& edge : graph.waits.edges) add(edge);
    return text + "}";
}

}  // namespace tools
