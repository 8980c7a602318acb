#ifndef LINXIPC_TOOLS_DOMAIN_REPORT_H
#define LINXIPC_TOOLS_DOMAIN_REPORT_H

#include <vector>

#include "inspect/hunts.h"
#include "tools/findings.h"
#include "tools/graph.h"
#include "tools/page.h"
#include "tools/queues.h"

namespace tools {

/// Everything that a domain tells at a moment, for those who are not there.
struct DomainReport {
    /// Endpoints, and what waits for each, by their order.
    struct Queue {
        std::string endpoint;
        Piles piles;
    };
    struct Hunt {
        std::string hunter;
        std::string name;
    };

    std::string host;
    std::string place;  ///< the domain, or the file
    std::string time;
    Facts facts;  ///< about the machine, the make and what there is room for
    std::vector<linx::inspect::Endpoint> endpoints;
    std::vector<Finding> findings;
    Graph graph;
    std::vector<Queue> queues;
    std::vector<Hunt> hunts;
    Table list{{}};
    Table holders{{}};
    Table record{{}};
    size_t recorded = 0;  ///< events, of which the record has the last
};

/// Looks at the domain, or the arena. Where something may be on its way this takes up to a second.
/// Events are those since a time, see recordsOf, and the last of them.
DomainReport reportOn(const linx::inspect::Place& place, size_t mostEvents, uint64_t firstTime);

}  // namespace tools

#endif
