#include "inspect/traffic.h"

#include <utility>

namespace linx {
namespace inspect {
namespace {

/// A rate is one where the record spans this long, or has so many signals of the flow: two in a millisecond are none.
constexpr double enoughSeconds = 1;
constexpr uint64_t enoughSignals = 10;

/// What one record says about the signals between its endpoint and another.
struct Share {
    std::map<uint32_t, Volume> numbers;
    uint64_t timed = 0;  ///< signals between the first and the last time in the record
    uint64_t total = 0;
};

/// From the first to the last event of a record whose times are known.
struct Span {
    size_t first = 0;
    size_t last = 0;
    double seconds = 0;

    explicit Span(const std::vector<Recorded>& record) {
        while (first < record.size() && record[first].time == 0) ++first;
        if (first == record.size()) return;
        for (last = record.size() - 1; record[last].time == 0;) --last;
        const uint64_t begin = record[first].time, end = record[last].time;
        if (end > begin) seconds = static_cast<double>(end - begin) / 1e9;
    }
    bool contains(size_t i) const { return first < i && i < last; }
};

using Ends = std::pair<Spid, Spid>;  ///< sender, receiver

/// The record of an endpoint by whom it sent to, or by whom it received from.
std::map<Ends, Share> sharesOf(const std::vector<Recorded>& record, EventKind kind, const Span& span) {
    std::map<Ends, Share> shares;
    for (size_t i = 0; i < record.size(); ++i) {
        const Recorded& event = record[i];
        if (event.kind != kind || event.peer == Spid::none) continue;
        const bool isSent = kind == EventKind::sent;
        Share& share = shares[isSent ? Ends(event.endpoint, event.peer) : Ends(event.peer, event.endpoint)];
        share.numbers[event.number].add({1, event.size});
        ++share.total;
        if (span.contains(i)) ++share.timed;
    }
    return shares;
}

/// Takes over what this record knows better.
void improve(Flow& flow, uint64_t& known, const Share& share, double seconds) {
    for (const auto& [number, volume] : share.numbers) {
        Volume& best = flow.numbers[number];
        if (volume.signals > best.signals) best = volume;
    }
    if (share.total <= known) return;
    known = share.total;
    flow.perSecond.reset();
    if (seconds >= enoughSeconds || (seconds > 0 && share.timed >= enoughSignals))
        flow.perSecond = static_cast<double>(share.timed) / seconds;
}

}  // namespace

std::vector<Flow> flowsOf(const std::vector<std::vector<Recorded>>& records) {
    std::map<Ends, std::pair<Flow, uint64_t>> flows;
    for (const EventKind kind : {EventKind::sent, EventKind::received}) {
        for (const auto& record : records) {
            const Span span(record);
            for (const auto& [ends, share] : sharesOf(record, kind, span)) {
                // Only a sender makes a flow to itself: what it receives from itself may be a notice or a time-out.
                if (kind == EventKind::received && ends.first == ends.second) continue;
                auto& [flow, known] = flows[ends];
                improve(flow, known, share, span.seconds);
            }
        }
    }
    std::vector<Flow> all;
    for (auto& [ends, known] : flows) {
        known.first.from = ends.first;
        known.first.to = ends.second;
        all.push_back(std::move(known.first));
    }
    return all;
}

}  // namespace inspect
}  // namespace linx
