#ifndef LINXIPC_TOOLS_LINK_STATUSES_H
#define LINXIPC_TOOLS_LINK_STATUSES_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/endpoints.h"
#include "link/status/status.h"
#include "tools/options.h"

namespace tools {

/// A link, and what it tells of itself; nothing where it has not answered.
struct LinkStatus {
    std::string name;
    std::optional<linx::link::Status> status;
};

/// Asks those of the endpoints that are links, together: it takes no longer than one that does not answer, a second
/// or as long as the options allow. Throws a Failure where the domain cannot be joined; joins none where there are no
/// links.
std::vector<LinkStatus> linkStatuses(const Options& options, const std::vector<linx::inspect::Endpoint>& endpoints);

}  // namespace tools

#endif
