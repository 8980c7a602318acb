#include "tools/rates.h"

#include <cstdio>
#include <unordered_map>

#include "host/system/clock.h"
#include "tools/look.h"

namespace tools {

using linx::inspect::Endpoint;
using linx::inspect::State;

Sample sampleOf(const linx::inspect::Place& place) {
    const auto snapshot = snapshotOf(place, linx::inspect::Snapshot::Events::leftOut);
    const uint64_t time = linx::now();
    return {time, linx::inspect::endpointsOf(snapshot->arena(), place)};
}

std::vector<Rated> ratesBetween(const Sample& earlier, const Sample& later) {
    std::unordered_map<linx::Spid, const Endpoint*> before;
    for (const Endpoint& endpoint : earlier.endpoints) before[endpoint.spid] = &endpoint;
    const double seconds = static_cast<double>(later.nanoseconds - earlier.nanoseconds) / 1e9;
    std::vector<Rated> rates;
    for (const Endpoint& endpoint : later.endpoints) {
        if (endpoint.state == State::ended) continue;
        const auto known = before.find(endpoint.spid);
        Rate rate;
        if (known != before.end() && seconds > 0) {
            const linx::Traffic& then = known->second->traffic;
            const linx::Traffic& now = endpoint.traffic;
            // Signed: a signal that was counted as sent may be taken back.
            const auto each = [&](uint64_t from, uint64_t to) {
                return static_cast<double>(static_cast<int64_t>(to - from)) / seconds;
            };
            rate = {each(then.signalsOut, now.signalsOut), each(then.signalsIn, now.signalsIn),
                    each(then.bytesOut, now.bytesOut), each(then.bytesIn, now.bytesIn)};
        }
        rates.push_back({endpoint, rate});
    }
    return rates;
}

std::string humanRate(double perSecond) {
    constexpr const char* units[] = {"", "k", "M", "G"};
    size_t unit = 0;
    while (perSecond >= 999.5 && unit + 1 < std::size(units)) {
        perSecond /= 1000;
        ++unit;
    }
    char text[32];
    const bool isWhole = perSecond == 0 || perSecond >= 99.95;
    std::snprintf(text, sizeof text, isWhole ? "%.0f%s" : "%.1f%s", perSecond, units[unit]);
    return text;
}

}  // namespace tools
