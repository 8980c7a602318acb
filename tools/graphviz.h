#ifndef LINXIPC_TOOLS_GRAPHVIZ_H
#define LINXIPC_TOOLS_GRAPHVIZ_H

#include <chrono>
#include <optional>
#include <string>

namespace tools {

/// Has Graphviz's `dot` draw the graph: an SVG document. Throws a Failure where it is not installed, fails, or takes
/// longer than `limit` (none: as long as it likes), when it is killed.
std::string drawnByGraphviz(const std::string& graph, std::optional<std::chrono::milliseconds> limit);

}  // namespace tools

#endif
