#include "bench/report/judgement.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <ostream>
#include <sstream>

#include "bench/peers/list.h"
#include "bench/report/find.h"

namespace bench {

namespace {

constexpr double notMeasured = std::numeric_limits<double>::quiet_NaN();

/// A line: what is wanted of a figure, and the figure.
struct Line {
    std::string about;
    enum class Wanted { atLeast, atMost } wanted;
    double bound;
    double got;
    std::string unit;

    std::string verdict() const {
        if (std::isnan(got)) return "not measured";
        const bool reached = wanted == Wanted::atLeast ? got >= bound : got <= bound;
        return reached ? "yes" : "NO";
    }
};

using Runs = std::vector<double>;

/// Runs of one round follow each other closely, so they meet the machine in the same state; those of different rounds
/// need not. So figures are put together round by round, and the median is taken last.
Runs roundByRound(const Runs& some, const Runs& others, double (*together)(double, double)) {
    Runs result;
    for (std::size_t i = 0; i < some.size() && some.size() == others.size(); ++i) {
        result.push_back(together(some[i], others[i]));
    }
    return result;
}

Runs ratio(const Runs& some, const Runs& others) {
    return roundByRound(some, others, [](double a, double b) { return a / b; });
}

Runs lesser(const Runs& some, const Runs& others) {
    return roundByRound(some, others, [](double a, double b) { return std::min(a, b); });
}

Runs sum(const Runs& some, const Runs& others) {
    return roundByRound(some, others, [](double a, double b) { return a + b; });
}

double median(const Runs& runs) {
    return runs.empty() ? notMeasured : spreadOf(runs).median;
}

/// The worst of several figures; one that was not measured spoils them all, since it might be worse.
double worst(const Runs& figures, bool large) {
    double worst = figures.front();
    for (const double figure : figures) {
        if (std::isnan(figure)) return notMeasured;
        worst = large ? std::max(worst, figure) : std::min(worst, figure);
    }
    return worst;
}

class Judge {
public:
    explicit Judge(const Records& measured) : records_(measured) {}

    std::vector<Line> lines() const {
        std::vector<Line> lines;
        roundTrips(lines);
        streams(lines);
        iceoryx(lines);
        populations(lines);
        idle(lines);
        return lines;
    }

private:
    using Wanted = Line::Wanted;

    Runs roundTrip(const char* peer, Placement placement, std::size_t payload) const {
        return find(records_, {"round-trip", peer, placement, payload, 2}, "median_ns");
    }
    Runs stream(const char* peer, std::size_t payload) const {
        return find(records_, {"stream", peer, Placement::apart, payload, 1}, "rate_per_s");
    }
    Runs own(const char* scenario, Placement placement, std::size_t payload, unsigned population,
             const char* figure) const {
        return find(records_, {scenario, linxIpcName, placement, payload, population}, figure);
    }

    void roundTrips(std::vector<Line>& lines) const {
        const Runs apart = roundTrip(linxIpcName, Placement::apart, 64);
        const Runs faster =
            lesser(roundTrip(seqpacketName, Placement::apart, 64), roundTrip(zeromqName, Placement::apart, 64));
        lines.push_back({"round trip, 64 bytes, a core each: faster than the better of SEQPACKET and ZeroMQ",
                         Wanted::atLeast, 100, median(ratio(faster, apart)), "times"});
        lines.push_back({"round trip, 64 bytes, a core each: as long as through bare memory", Wanted::atMost, 3,
                         median(ratio(apart, roundTrip(bareMemoryName, Placement::apart, 64))), "times"});
        const Runs one = roundTrip(linxIpcName, Placement::one, 64);
        lines.push_back({"round trip, 64 bytes, one core: as long as SEQPACKET", Wanted::atMost, 1,
                         median(ratio(one, roundTrip(seqpacketName, Placement::one, 64))), "times"});
    }

    void streams(std::vector<Line>& lines) const {
        const Runs large = stream(linxIpcName, 60000);
        lines.push_back({"stream, 64 bytes, a core each: messages of ZeroMQ", Wanted::atLeast, 2.5,
                         median(ratio(stream(linxIpcName, 64), stream(zeromqName, 64))), "times"});
        lines.push_back({"stream, 60000 bytes, a core each: bytes of ZeroMQ", Wanted::atLeast, 6,
                         median(ratio(large, stream(zeromqName, 60000))), "times"});
        lines.push_back({"stream, 60000 bytes, a core each: slower than two copies through bare memory",
                         Wanted::atMost, 2.5, median(ratio(stream(bareMemoryName, 60000), large)), "times"});
        lines.push_back({"relay hop: 60000 bytes against 64", Wanted::atMost, 1.2,
                         median(ratio(own("relay-hop", Placement::both, 60000, 3, "median_ns"),
                                      own("relay-hop", Placement::both, 64, 3, "median_ns"))),
                         "times"});
    }

    void iceoryx(std::vector<Line>& lines) const {
        for (const char* peer : {iceoryxName, iceoryxPollingName}) {
            Runs trips, streams;
            for (const std::size_t payload : {16U, 64U, 256U, 1024U, 4096U}) {
                trips.push_back(median(ratio(roundTrip(peer, Placement::apart, payload),
                                             roundTrip(linxIpcName, Placement::apart, payload))));
                streams.push_back(median(ratio(stream(linxIpcName, payload), stream(peer, payload))));
            }
            const std::string other = std::string(" than ") + peer + ", a core each, the worst of 16 to 4096 bytes";
            lines.push_back({"round trip: faster" + other, Wanted::atLeast, 1, worst(trips, false), "times"});
            lines.push_back({"stream: faster" + other, Wanted::atLeast, 1, worst(streams, false), "times"});
        }
    }

    void populations(std::vector<Line>& lines) const {
        const auto sending = [&](unsigned endpoints) {
            return own("crowded-send", Placement::both, 64, endpoints, "median_ns");
        };
        lines.push_back({"send with 4000 endpoints in the domain against 10", Wanted::atMost, 1.1,
                         median(ratio(sending(4000), sending(10))), "times"});
        Runs each, growth;
        for (const char* figure : {"open_ns", "hunt_ns", "close_ns"}) {
            const auto with = [&](unsigned endpoints) {
                return own("endpoints", Placement::both, 0, endpoints, figure);
            };
            each.push_back(median(with(1000)) / 1000);
            growth.push_back(median(ratio(with(4000), with(100))));
        }
        lines.push_back(
            {"open, hunt and close with 1000 endpoints: the slowest", Wanted::atMost, 40, worst(each, true), "us"});
        lines.push_back({"open, hunt and close with 4000 endpoints against 100: the worst", Wanted::atMost, 3,
                         worst(growth, true), "times"});
        const auto asking = [&](unsigned queued) {
            return own("backlog", Placement::apart, 64, queued, "median_ns");
        };
        lines.push_back({"request with 100000 other messages queued against none", Wanted::atMost, 1.2,
                         median(ratio(asking(100000), asking(0))), "times"});
    }

    void idle(std::vector<Line>& lines) const {
        const auto idle = [&](const char* figure) { return own("idle", Placement::both, 64, 2, figure); };
        lines.push_back(
            {"idle endpoint: wake-ups", Wanted::atMost, 0, median(sum(idle("switches"), idle("involuntary"))), ""});
        lines.push_back({"idle endpoint: processor time", Wanted::atMost, 0, median(idle("processor_us")), "us"});
    }

    const Records& records_;
};

}  // namespace

void printJudgement(std::ostream& out, const Records& records) {
    out << "\n### Wanted and got\n\n| of LinxIpc | wanted | got | |\n|---|---:|---:|---|\n";
    for (const Line& line : Judge(records).lines()) {
        out << "| " << line.about << " | at " << (line.wanted == Line::Wanted::atLeast ? "least " : "most ")
            << line.bound << ' ' << line.unit << " | ";
        if (!std::isnan(line.got))
            out << std::setprecision(3) << line.got << std::setprecision(6) << ' ' << line.unit;
        out << " | " << line.verdict() << " |\n";
    }
    out << std::flush;
}

}  // namespace bench
