#include "inspect/snapshot.h"
#include "tools/failure.h"
#include "tools/findings.h"
#include "tools/link_statuses.h"
#include "tools/text.h"

namespace tools {
namespace {

using linx::link::Status;

/// Dialling again takes that long at most.
constexpr uint64_t patience = 3;

void look(const LinkStatus& link, std::vector<Finding>& findings) {
    if (!link.status) {
        findings.push_back({"link-silent", link.name, "does not answer",
                            "linx status " + nameWord(link.name) + " shows its process"});
        return;
    }
    const Status& status = *link.status;
    if (status.state != "up" && status.seconds >= patience) {
        const std::string time = humanSeconds(static_cast<double>(status.seconds));
        findings.push_back({"link-down", link.name,
                            "has not been up for " + time + (status.reason.empty() ? "" : ": " + status.reason),
                            "see whether linx-link runs over there, and have `linx-link check` look at the "
                            "configurations of both sides"});
    }
    for (const std::string& denied : status.denied) {
        findings.push_back({"link-denied", link.name + "/" + denied,
                            "is hunted for, and the other side does not let it",
                            "add it to `export` of the [[link]] over there, or put the name right"});
    }
}

}  // namespace

std::vector<Finding> examineLinks(const Options& options, const linx::inspect::Place& place) {
    const auto snapshot = linx::inspect::Snapshot::take(place.file(), linx::inspect::Snapshot::Events::leftOut);
    if (place.directory() == -1 || snapshot == nullptr) return {};
    std::vector<Finding> findings;
    try {
        for (const LinkStatus& link : linkStatuses(options, linx::inspect::endpointsOf(snapshot->arena(), place))) {
            look(link, findings);
        }
    } catch (const Failure&) {  // who may only look cannot ask
    }
    return findings;
}

}  // namespace tools
