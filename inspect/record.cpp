#include "inspect/record.h"

#include <algorithm>
#include <map>
#include <tuple>

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

    std::map<const Recorded*, const Recorded*> sendings_;
};

class Merger {
public:
    explicit Merger(const std::vector<std::vector<Recorded>>& records) : pairs_(records) {
        for (const auto& record : records) tracks_.push_back({&record, 0, 0});
        for (Track& track : tracks_) advance(track);
    }

    std::vector<Recorded> run() {
        std::vector<Recorded> merged;
        while (Track* track = choose()) {
            merged.push_back(track->first());
            done_[track->first().endpoint] = track->first().count + 1;
            ++track->next;
            advance(*track);
        }
        return merged;
    }

private:
    static void advance(Track& track) {
        if (!track.isDone() && track.first().time != 0) track.time = track.first().time;
    }

    /// The one whose next event is the earliest of those that wait for no other; of all where each waits, as garbage
    /// may have it.
    Track* choose() {
        Track* best = nullptr;
        bool isBestFree = false;
        for (Track& track : tracks_) {
            if (track.isDone()) continue;
            const bool isFree = !waitsForSending(track.first());
            const bool isBetter =
                best == nullptr || (isFree && !isBestFree) || (isFree == isBestFree && track.time < best->time);
            if (!isBetter) continue;
            best = &track;
            isBestFree = isFree;
        }
        return best;
    }

    bool waitsForSending(const Recorded& event) const {
        const Recorded* const sending = event.kind == EventKind::received ? pairs_.sendingOf(event) : nullptr;
        if (sending == nullptr || sending->endpoint == event.endpoint) return false;
        const auto done = done_.find(sending->endpoint);
        return done == done_.end() || done->second <= sending->count;
    }

    const Pairs pairs_;
    std::vector<Track> tracks_;
    std::map<Spid, uint32_t> done_;  ///< the count from which on nothing has been merged yet
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
