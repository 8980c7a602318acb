#ifndef LINXIPC_TOOLS_CIRCLE_H
#define LINXIPC_TOOLS_CIRCLE_H

#include <string>

#include "tools/graph.h"

namespace tools {

/// The graph as an SVG element for a page, its nodes on a circle: for machines without Graphviz. How it looks is the
/// page's style to say.
std::string drawnOnCircle(const Graph& graph);

}  // namespace tools

#endif
