#include "bench/scenarios/choose.h"

#include "bench/peers/list.h"

namespace bench {

std::vector<Case> Combine(const std::vector<const Peer*>& peers, Pattern pattern,
                          const std::vector<Placement>& placements, const std::vector<std::size_t>& payloads,
                          const std::vector<unsigned>& processes) {
    std::vector<Case> cases;
    for (const Placement placement : placements) {
        for (const std::size_t payload : payloads) {
            for (const unsigned count : processes) {
                for (const Peer* peer : peers) {
                    if (peer->Takes({pattern, count, payload, placement, ""})) {
                        cases.push_back({peer, placement, payload, count});
                    }
                }
            }
        }
    }
    return cases;
}

std::vector<const Peer*> LinxIpcOf(const Wishes& wishes) {
    for (const Peer* peer : wishes.peers) {
        if (peer->Name() == linxIpcName) return {peer};
    }
    return {};
}

}  // namespace bench
