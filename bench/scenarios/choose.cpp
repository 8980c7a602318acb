#include "bench/scenarios/choose.h"

#include <algorithm>
#include <iterator>

#include "bench/peers/list.h"

namespace bench {

std::vector<Case> combine(const std::vector<const Peer*>& peers, Pattern pattern,
                          const std::vector<Placement>& placements, const std::vector<std::size_t>& payloads,
                          const std::vector<unsigned>& processes) {
    std::vector<Case> cases;
    for (const Placement placement : placements) {
        for (const std::size_t payload : payloads) {
            for (const unsigned count : processes) {
                for (const Peer* peer : peers) {
                    if (peer->takes({pattern, count, payload, placement, ""})) {
                        cases.push_back({peer, placement, payload, count});
                    }
                }
            }
        }
    }
    return cases;
}

std::vector<Case> combineForTwo(const Wishes& wishes, Pattern pattern) {
    const std::vector<std::size_t>& payloads = wishes.payloads;
    std::vector<std::size_t> few;
    std::copy_if(payloads.begin(), payloads.end(), std::back_inserter(few),
                 [](std::size_t payload) { return payload == 64 || payload == 60000; });
    std::vector<Case> cases = combine(wishes.peers, pattern, {Placement::apart, Placement::one}, payloads, {2});
    for (const Case& each : combine(wishes.peers, pattern, {Placement::both}, few, {2})) cases.push_back(each);
    return cases;
}

std::vector<const Peer*> only(const char* name, const Wishes& wishes) {
    for (const Peer* peer : wishes.peers) {
        if (peer->name == std::string(name)) return {peer};
    }
    return {};
}

std::vector<const Peer*> blocking(const Wishes& wishes) {
    std::vector<const Peer*> blocking;
    for (const Peer* peer : wishes.peers) {
        if (peer->blocks) blocking.push_back(peer);
    }
    return blocking;
}

std::vector<Case> linxIpcAmong(const Wishes& wishes, Placement placement, std::size_t payload,
                               const std::vector<unsigned>& populations) {
    std::vector<Case> cases;
    for (const Peer* peer : only(linxIpcName, wishes)) {
        for (const unsigned population : populations) cases.push_back({peer, placement, payload, population});
    }
    return cases;
}

}  // namespace bench
