#ifndef LINXIPC_INSPECT_TRAFFIC_H
#define LINXIPC_INSPECT_TRAFFIC_H

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "inspect/record.h"

namespace linx {
namespace inspect {

/// Signals that were sent, and their bytes as a receive counts them.
struct Volume {
    uint64_t signals = 0;
    uint64_t bytes = 0;

    void add(const Volume& other) {
        signals += other.signals;
        bytes += other.bytes;
    }
};

/// What one endpoint has sent to another lately.
struct Flow {
    Spid from = Spid::none;
    Spid to = Spid::none;
    std::map<uint32_t, Volume> numbers;  ///< by the signal's number
    std::optional<double> perSecond;     ///< signals; none where the record is too short to tell
};

/// Who sent to whom, from the records of endpoints, by sender and receiver. What both have recorded counts once;
/// where one has forgotten more than the other, what the latter has. So a flow is never larger than what was sent.
std::vector<Flow> flowsOf(const std::vector<std::vector<Recorded>>& records);

}  // namespace inspect
}  // namespace linx

#endif
