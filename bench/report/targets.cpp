#include "bench/report/targets.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <ostream>

#include "bench/peers/list.h"
#include "bench/report/find.h"
#include "bench/report/series.h"

namespace bench {

namespace {

Series roundTrip(const char* peer, Placement placement, std::size_t payload) {
    return measured({"round-trip", peer, placement, payload, 2}, "median_ns");
}

Series stream(const char* peer, std::size_t payload) {
    return measured({"stream", peer, Placement::apart, payload, 1}, "rate_per_s");
}

Series relayHop(std::size_t payload) {
    return measured({"relay-hop", linxIpcName, Placement::both, payload, 3}, "median_ns");
}

Series sendAmong(unsigned endpoints) {
    return measured({"crowded-send", linxIpcName, Placement::both, 64, endpoints}, "median_ns");
}

Series among(unsigned endpoints, const char* figure) {
    return measured({"endpoints", linxIpcName, Placement::both, 0, endpoints}, figure);
}

Series requestBehind(unsigned queued) {
    return measured({"backlog", linxIpcName, Placement::apart, 64, queued}, "median_ns");
}

Series idle(const char* figure) {
    return measured({"idle", linxIpcName, Placement::both, 64, 2}, figure);
}

constexpr auto apart = Placement::apart;
constexpr auto one = Placement::one;

template <class Make>
std::vector<Series> forEach(const std::vector<std::size_t>& payloads, Make make) {
    std::vector<Series> series;
    for (const std::size_t payload : payloads) series.push_back(make(payload));
    return series;
}

std::vector<Series> tripsAgainst(const char* peer) {
    return forEach({16, 64, 256, 1024, 4096}, [&](std::size_t payload) {
        return roundTrip(peer, apart, payload) / roundTrip(linxIpcName, apart, payload);
    });
}

std::vector<Series> streamsAgainst(const char* peer) {
    return forEach({16, 64, 256, 1024, 4096},
                   [&](std::size_t payload) { return stream(linxIpcName, payload) / stream(peer, payload); });
}

enum class Bound { atLeast, atMost };

struct Target {
    const char* about;
    Bound bound;
    double value;
    const char* unit;
    std::vector<Series> figures;  ///< the worst of which counts
};

const std::vector<Target>& targets() {
    static const std::vector<Target> targets = {
        {"round trip, 64 bytes, a core each: faster than the better of SEQPACKET and ZeroMQ",
         Bound::atLeast,
         100,
         "times",
         {lesser(roundTrip(seqpacketName, apart, 64), roundTrip(zeromqName, apart, 64)) /
          roundTrip(linxIpcName, apart, 64)}},
        {"round trip, 64 bytes, a core each: as long as through bare memory",
         Bound::atMost,
         3,
         "times",
         {roundTrip(linxIpcName, apart, 64) / roundTrip(bareMemoryName, apart, 64)}},
        {"round trip, 64 bytes, one core: as long as SEQPACKET",
         Bound::atMost,
         1,
         "times",
         {roundTrip(linxIpcName, one, 64) / roundTrip(seqpacketName, one, 64)}},
        {"stream, 64 bytes, a core each: messages of ZeroMQ",
         Bound::atLeast,
         2.5,
         "times",
         {stream(linxIpcName, 64) / stream(zeromqName, 64)}},
        {"stream, 60000 bytes, a core each: bytes of ZeroMQ",
         Bound::atLeast,
         6,
         "times",
         {stream(linxIpcName, 60000) / stream(zeromqName, 60000)}},
        {"stream, 60000 bytes, a core each: slower than two copies through bare memory",
         Bound::atMost,
         2.5,
         "times",
         {stream(bareMemoryName, 60000) / stream(linxIpcName, 60000)}},
        {"relay hop: 60000 bytes against 64", Bound::atMost, 1.2, "times", {relayHop(60000) / relayHop(64)}},
        {"round trip: faster than iceoryx, a core each, the worst of 16 to 4096 bytes", Bound::atLeast, 1, "times",
         tripsAgainst(iceoryxName)},
        {"stream: faster than iceoryx, a core each, the worst of 16 to 4096 bytes", Bound::atLeast, 1, "times",
         streamsAgainst(iceoryxName)},
        {"round trip: faster than iceoryx, polling, a core each, the worst of 16 to 4096 bytes", Bound::atLeast, 1,
         "times", tripsAgainst(iceoryxPollingName)},
        {"stream: faster than iceoryx, polling, a core each, the worst of 16 to 4096 bytes", Bound::atLeast, 1,
         "times", streamsAgainst(iceoryxPollingName)},
        {"send with 4000 endpoints in the domain against 10",
         Bound::atMost,
         1.1,
         "times",
         {sendAmong(4000) / sendAmong(10)}},
        {"open, hunt and close with 1000 endpoints: the slowest",
         Bound::atMost,
         40,
         "us",
         {among(1000, "open_ns") / 1000, among(1000, "hunt_ns") / 1000, among(1000, "close_ns") / 1000}},
        {"open, hunt and close with 4000 endpoints against 100: the worst",
         Bound::atMost,
         3,
         "times",
         {among(4000, "open_ns") / among(100, "open_ns"), among(4000, "hunt_ns") / among(100, "hunt_ns"),
          among(4000, "close_ns") / among(100, "close_ns")}},
        {"request with 100000 other messages queued against none",
         Bound::atMost,
         1.2,
         "times",
         {requestBehind(100000) / requestBehind(0)}},
        {"idle endpoint: wake-ups", Bound::atMost, 0, "", {idle("switches") + idle("involuntary")}},
        {"idle endpoint: processor time", Bound::atMost, 0, "us", {idle("processor_us")}},
    };
    return targets;
}

/// The median of the worst figure; not a number where one of them was not measured, since it might be worse.
double resultOf(const Target& target, const Records& records) {
    double result = std::numeric_limits<double>::quiet_NaN();
    for (const Series& figure : target.figures) {
        const Runs runs = figure(records);
        if (runs.empty()) return std::numeric_limits<double>::quiet_NaN();
        const double median = spreadOf(runs).median;
        const bool worse = target.bound == Bound::atLeast ? median < result : median > result;
        if (std::isnan(result) || worse) result = median;
    }
    return result;
}

const char* verdict(const Target& target, double result) {
    if (std::isnan(result)) return "not measured";
    return (target.bound == Bound::atLeast ? result >= target.value : result <= target.value) ? "yes" : "NO";
}

}  // namespace

void printTargets(std::ostream& out, const Records& records) {
    out << "\n### Targets and results\n\n| of LinxIpc | target | result | |\n|---|---:|---:|---|\n";
    for (const Target& target : targets()) {
        const double result = resultOf(target, records);
        out << "| " << target.about << " | at " << (target.bound == Bound::atLeast ? "least " : "most ")
            << target.value << ' ' << target.unit << " | ";
        if (!std::isnan(result)) out << std::setprecision(3) << result << std::setprecision(6) << ' ' << target.unit;
        out << " | " << verdict(target, result) << " |\n";
    }
    out << std::flush;
}

}  // namespace bench
