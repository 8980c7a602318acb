#include "inspect/record.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace linx {
namespace inspect {
namespace {

bool hasTime(EventKind kind) {
    return kind == EventKind::opened || kind == EventKind::slept || kind == EventKind::woke;
}

Recorded read(const Event& event, Spid endpoint) {
    const uint32_t word = event.event.loadRelaxed();
    Recorded recorded;
    recorded.endpoint = endpoint;
    recorded.count = countOf(word);
    recorded.kind = kindOf(word);
    recorded.number = event.number.loadRelaxed();
    recorded.size = event.size.loadRelaxed();
    recorded.peer = Spid{numberOf(event.peer.loadRelaxed()) & spidMask};
    recorded.block = event.block.loadRelaxed();
    recorded.reason = event.reason.loadRelaxed();
    recorded.time = hasTime(recorded.kind) ? event.time : 0;
    return recorded;
}

/// One record while it is merged: what is left of it, and about when the next of it happened.
struct Track {
    const std::vector<Recorded>* events;
    size_t next = 0;
    uint64_t time = 0;

    bool isDone() const { return next == events->size(); }
    const Recorded& first() const { return (*events)[next]; }
    void takeTime() {
        if (!isDone() && first().time != 0) time = first().time;
    }
};

/// A signal's way: the same block can be under way between the same two only once at a time.
using Way = std::tuple<Spid, Spid, Ref>;

/// For each record, the events that are receptions of a signal whose sending is recorded too.
class Pairs {
public:
    explicit Pairs(const std::vector<std::vector<Recorded>>& records) {
        std::map<Way, Ends> ways;
        for (const auto& record : records) {
            for (const Recorded& event : record) {
                if (event.kind == EventKind::sent)
                    ways[{event.endpoint, event.peer, event.block}].sent.push_back(&event);
                if (event.kind == EventKind::received)
                    ways[{event.peer, event.endpoint, event.block}].received.push_back(&event);
            }
        }
        for (const auto& way : ways) match(way.second);
    }

    /// The sending of what was received in this event; null where it is not recorded.
    const Recorded* sendingOf(const Recorded& received) const {
        const auto found = sendings_.find(&received);
        return found == sendings_.end() ? nullptr : found->second;
    }

private:
    struct Ends {
        std::vector<const Recorded*> sent;
        std::vector<const Recorded*> received;
    };
    static bool isSame(const Recorded& a, const Recorded& b) { return a.number == b.number && a.size == b.size; }

    /// From the end, as the beginnings of records are gone. The last that was sent may not have been received yet.
    void match(const Ends& ends) {
        auto sent = ends.sent.rbegin();
        for (auto received = ends.received.rbegin(); received != ends.received.rend(); ++received) {
            while (sent != ends.sent.rend() && !isSame(**sent, **received)) ++sent;
            if (sent == ends.sent.rend()) return;
            sendings_[*received] = *sent++;
        }
    }

    std::unordered_map<const Recorded*, const Recorded*> sendings_;
};

class Merger {
public:
    explicit Merger(const std::vector<std::vector<Recorded>>& records) : pairs_(records) {
        for (const auto& record : records) tracks_.push_back({&record});
        for (size_t i = 0; i < tracks_.size(); ++i) enqueue(i);
    }

    std::vector<Recorded> run() {
        std::vector<Recorded> merged;
        while (!free_.empty() || !held_.empty()) {
            const size_t chosen = choose();
            Track& track = tracks_[chosen];
            const Recorded event = track.first();
            merged.push_back(event);
            ++track.next;
            enqueue(chosen);
            done_[event.endpoint] = event.count + 1;
            release(event.endpoint);
        }
        return merged;
    }

private:
    /// The time of a track's next event, and which track it is: the one that comes first stands first.
    using Turn = std::pair<uint64_t, size_t>;

    /// The next event waits for its turn, or for the sending of what it receives.
    void enqueue(size_t index) {
        Track& track = tracks_[index];
        track.takeTime();
        if (track.isDone()) return;
        const Recorded* const sending = awaitedBy(track.first());
        (sending == nullptr ? free_ : held_).insert({track.time, index});
        if (sending != nullptr) waiting_.insert({sending->endpoint, index});
    }

    /// The earliest that waits for no other; of all where each waits, as garbage may have it.
    size_t choose() {
        std::set<Turn>& from = free_.empty() ? held_ : free_;
        const size_t index = from.begin()->second;
        from.erase(from.begin());
        if (&from == &held_) forget(index);
        return index;
    }

    void forget(size_t index) {
        const auto among = waiting_.equal_range(awaitedBy(tracks_[index].first())->endpoint);
        const auto its =
            std::find_if(among.first, among.second, [&](const auto& one) { return one.second == index; });
        waiting_.erase(its);
    }

    /// Those who waited for an event of this endpoint may have waited for the one that was just merged.
    void release(Spid endpoint) {
        const auto among = waiting_.equal_range(endpoint);
        for (auto its = among.first; its != among.second;) {
            const Track& track = tracks_[its->second];
            if (awaitedBy(track.first()) != nullptr) {
                ++its;
                continue;
            }
            held_.erase({track.time, its->second});
            free_.insert({track.time, its->second});
            its = waiting_.erase(its);
        }
    }

    /// The sending that has to come before this event; null when there is none, or it has come.
    const Recorded* awaitedBy(const Recorded& event) const {
        const Recorded* const sending = event.kind == EventKind::received ? pairs_.sendingOf(event) : nullptr;
        if (sending == nullptr || sending->endpoint == event.endpoint) return nullptr;
        const auto done = done_.find(sending->endpoint);
        return done == done_.end() || done->second <= sending->count ? sending : nullptr;
    }

    const Pairs pairs_;
    std::vector<Track> tracks_;
    std::set<Turn> free_;                      ///< tracks whose next event may come
    std::set<Turn> held_;                      ///< the others
    std::multimap<Spid, size_t> waiting_;      ///< of these, for whose events they wait
    std::unordered_map<Spid, uint32_t> done_;  ///< the count from which on nothing has been merged yet
};

}  // namespace

std::vector<Recorded> recordOf(const Arena& arena, SlotIndex index) {
    const Slot& slot = arena.slot(index);
    const EventRing& ring = arena.events(index);
    const uint32_t last = slot.recorded.loadRelaxed();
    const Spid endpoint = spidOf(slot.life.loadRelaxed());
    std::vector<Recorded> events;
    for (uint32_t back = eventCount; back-- != 0;) {
        const uint32_t expected = countOf(last - back * eventStep);
        const Recorded event = read(ring.at(last - back * eventStep), endpoint);
        if (event.count != expected || event.kind == EventKind::none) continue;
        if (event.kind == EventKind::opened) events.clear();  // the earlier ones are another's
        events.push_back(event);
    }
    return events;
}

std::vector<Recorded> merge(const std::vector<std::vector<Recorded>>& records) {
    return Merger(records).run();
}

const char* wordFor(EventKind kind) {
    switch (kind) {
        case EventKind::opened:
            return "opened";
        case EventKind::sent:
            return "sent";
        case EventKind::received:
            return "received";
        case EventKind::refused:
            return "refused";
        case EventKind::slept:
            return "slept";
        case EventKind::woke:
            return "woke";
        case EventKind::peerDied:
            return "peer-died";
        case EventKind::closed:
            return "closed";
        case EventKind::none:
            break;
    }
    return "unknown";
}

}  // namespace inspect
}  // namespace linx
