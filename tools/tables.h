#ifndef LINXIPC_TOOLS_TABLES_H
#define LINXIPC_TOOLS_TABLES_H

#include <string>
#include <vector>

#include "inspect/endpoints.h"
#include "inspect/holdings.h"
#include "inspect/record.h"
#include "tools/named_waits.h"
#include "tools/table.h"

namespace tools {

/// An endpoint, and what it has of the domain's memory.
struct Holder {
    linx::inspect::Endpoint endpoint;
    linx::inspect::Holding holding;
};

/// What verbs show, each where its verb is.
Table listTable(const linx::Arena& arena, const std::vector<linx::inspect::Endpoint>& endpoints);
Table waitsTable(const NamedWaits& waits);
Table recordTable(const linx::Arena& arena, const std::vector<linx::inspect::Recorded>& events);
Table holdersTable(const std::vector<Holder>& holders);

/// Those who hold something, or have lent something out, the largest first. With a name only who is called that,
/// whatever it holds.
std::vector<Holder> holdersAmong(const linx::Arena& arena, const std::vector<linx::inspect::Endpoint>& endpoints,
                                 const std::string& name);

}  // namespace tools

#endif
