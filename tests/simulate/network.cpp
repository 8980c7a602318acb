#include "tests/simulate/network.h"

#include <algorithm>

namespace simulate {
namespace {

constexpr Time dialTimeout = std::chrono::milliseconds(500);
constexpr size_t mostSamples = 8;

Time within(Random& random, uint64_t most) {
    return Time(random.below(most + 1));
}

}  // namespace

void Network::dial(int from, int to, Time now) {
    Pipe& pipe = pipes_[next_++];
    pipe.ends[0].node = from;
    pipe.ends[1].node = to;
    pipe.ends[0].isDialler = true;
    const bool fails = isBlocked(from, to) || isBlocked(to, from);
    trace_.add("%d dials %d: connection %llu%s", from, to, static_cast<unsigned long long>(next_ - 1),
               fails ? " in vain" : "");
    if (fails) {
        put(pipe.ends[0], {Transit::Kind::dialFailed, {}, {}}, dialTimeout, now);
        return;
    }
    put(pipe.ends[1], {Transit::Kind::connected, {}, {}}, weather_.latency, now);
    put(pipe.ends[0], {Transit::Kind::connected, {}, {}}, 2 * weather_.latency, now);
}

bool Network::hasRoom(int from, Connection connection) const {
    const auto found = pipes_.find(static_cast<uint64_t>(connection));
    return found == pipes_.end() ||
           found->second.ends[static_cast<size_t>(otherOf(found->second, from))].bytes <= weather_.capacity;
}

void Network::send(int from, Connection connection, Bytes frame, Time now) {
    const auto found = pipes_.find(static_cast<uint64_t>(connection));
    if (found == pipes_.end()) return;
    Pipe& pipe = found->second;
    const size_t other = static_cast<size_t>(otherOf(pipe, from));
    End& to = pipe.ends[other];
    if (!pipe.ends[1 - other].isOpen) return;
    to.bytes += frame.size();
    const Time sending = Time(static_cast<int64_t>(frame.size() * 1000 / weather_.bytesAMillisecond));
    const Time start = std::max(now + weather_.latency, to.last);
    put(to, {Transit::Kind::frame, {}, std::move(frame)}, start + sending - now, now);
    if (!isWell_) spoil(pipe, to, now);
}

void Network::put(End& to, Transit transit, Time delay, Time now) {
    transit.at = std::max(now + delay, to.last);
    to.last = transit.at;
    to.coming.push_back(std::move(transit));
}

uint64_t Network::fault(Pipe& pipe) {
    pipe.isTroubled = true;
    return ++faults_;
}

/// What the weather does to the frame that was sent last.
void Network::spoil(Pipe& pipe, End& to, Time now) {
    Transit& transit = to.coming.back();
    if (to.samples.size() < mostSamples || random_.below(16) == 0) {
        to.samples.push_back(transit.frame);
        if (to.samples.size() > mostSamples) to.samples.pop_front();
    }
    if (random_.chance(weather_.stall)) {
        fault(pipe);
        to.last = transit.at += within(random_, 200000);
    }
    if (random_.chance(weather_.twice)) {
        fault(pipe);
        trace_.add("a frame to %d is doubled", to.node);
        to.bytes += transit.frame.size();
        to.coming.push_back(Transit(to.coming.back()));
    }
    if (to.coming.size() > 1 && random_.chance(weather_.reorder)) {
        fault(pipe);
        trace_.add("two frames to %d change places", to.node);
        Transit& before = to.coming[to.coming.size() - 2];
        if (before.kind == Transit::Kind::frame) std::swap(before.frame, to.coming.back().frame);
    }
    if (random_.chance(weather_.garbage)) {
        fault(pipe);
        trace_.add("garbage to %d", to.node);
        Bytes garbage = to.coming.back().frame;
        garbage.resize(random_.indexOf(garbage.size() + 1));
        if (random_.below(2) == 0) {
            for (uint8_t& byte : garbage) byte = static_cast<uint8_t>(random_.next());
        }
        to.bytes += garbage.size();
        put(to, {Transit::Kind::frame, {}, std::move(garbage)}, {}, now);
    }
    if (random_.chance(weather_.late)) injectLate(pipe, to, now);
    if (random_.chance(weather_.lose) && to.coming.back().kind == Transit::Kind::frame) {
        fault(pipe);
        trace_.add("a frame to %d is lost", to.node);
        to.bytes -= to.coming.back().frame.size();
        to.coming.pop_back();
    }
}

void Network::injectLate(Pipe& pipe, End& to, Time now) {
    const int from = pipe.ends[0].node == to.node ? pipe.ends[1].node : pipe.ends[0].node;
    const std::deque<Bytes>& old = old_[{from, to.node}];
    if (old.empty()) return;
    fault(pipe);
    trace_.add("an old frame comes to %d", to.node);
    Bytes frame = old[random_.indexOf(old.size())];
    to.bytes += frame.size();
    put(to, {Transit::Kind::frame, {}, std::move(frame)}, {}, now);
}

void Network::close(int from, Connection connection, Time now) {
    const auto found = pipes_.find(static_cast<uint64_t>(connection));
    if (found == pipes_.end()) return;
    Pipe& pipe = found->second;
    const int other = otherOf(pipe, from);
    pipe.ends[static_cast<size_t>(1 - other)].isOpen = false;
    tellClosed(pipe, other, now);
}

void Network::tellClosed(Pipe& pipe, int end, Time now) {
    put(pipe.ends[static_cast<size_t>(end)], {Transit::Kind::closed, {}, {}}, weather_.latency, now);
}

bool Network::isReady(const Pipe& pipe, int end) const {
    const End& to = pipe.ends[static_cast<size_t>(end)];
    return !to.coming.empty() && !isBlocked(pipe.ends[static_cast<size_t>(1 - end)].node, to.node);
}

void Network::deliver(const std::vector<Station*>& stations, Time now) {
    for (auto at = blocked_.begin(); at != blocked_.end();)
        at = at->second <= now ? blocked_.erase(at) : std::next(at);
    std::vector<uint64_t> numbers;
    for (const auto& [number, pipe] : pipes_) numbers.push_back(number);
    for (const uint64_t number : numbers) {
        Pipe& pipe = pipes_[number];
        for (int end = 0; end < 2; ++end) {
            while (step(stations, number, pipe, end, now)) {
            }
        }
    }
    sweep();
}

bool Network::step(const std::vector<Station*>& stations, uint64_t number, Pipe& pipe, int end, Time now) {
    End& to = pipe.ends[static_cast<size_t>(end)];
    Station& station = *stations[static_cast<size_t>(to.node)];
    if (!isReady(pipe, end) || to.coming.front().at > now || !station.runs()) return false;
    const int peer = pipe.ends[static_cast<size_t>(1 - end)].node;
    Transit transit = std::move(to.coming.front());
    to.coming.pop_front();
    to.bytes -= transit.frame.size();
    switch (transit.kind) {
        case Transit::Kind::dialFailed:
            station.dialFailed(peer);
            break;
        case Transit::Kind::connected:
            to.isOpen = true;
            station.connected(peer, Connection(number), to.isDialler);
            break;
        case Transit::Kind::frame:
            if (to.isOpen) station.arrived(peer, Connection(number), transit.frame);
            break;
        case Transit::Kind::closed:
            if (to.isOpen) station.disconnected(peer, Connection(number));
            to.isOpen = false;
            break;
    }
    return true;
}

Time Network::deadline(const std::vector<Station*>& stations) const {
    Time deadline = Time::max();
    for (const auto& [number, pipe] : pipes_) {
        for (int end = 0; end < 2; ++end) {
            const End& to = pipe.ends[static_cast<size_t>(end)];
            if (!isReady(pipe, end) || !stations[static_cast<size_t>(to.node)]->runs()) continue;
            deadline = std::min(deadline, to.coming.front().at);
        }
    }
    for (const auto& [pair, until] : blocked_) deadline = std::min(deadline, until);
    return deadline;
}

/// Connections that have no end any more leave some frames behind, which may turn up later.
void Network::sweep() {
    for (auto at = pipes_.begin(); at != pipes_.end();) {
        const auto& ends = at->second.ends;
        if (ends[0].isOpen || ends[1].isOpen || !ends[0].coming.empty() || !ends[1].coming.empty()) {
            ++at;
            continue;
        }
        for (size_t end = 0; end < 2; ++end) {
            std::deque<Bytes>& old = old_[{ends[1 - end].node, ends[end].node}];
            old.insert(old.end(), ends[end].samples.begin(), ends[end].samples.end());
            while (old.size() > 4 * mostSamples) old.pop_front();
        }
        troubled_[at->first] = at->second.isTroubled;
        at = pipes_.erase(at);
    }
}

void Network::cut(Pipe& pipe, bool half, Time now) {
    fault(pipe);
    trace_.add("the connection between %d and %d is cut%s", pipe.ends[0].node, pipe.ends[1].node,
               half ? ", and one of them not told" : "");
    const size_t spared = half ? random_.indexOf(2) : 2;
    for (size_t end = 0; end < 2; ++end) {
        End& to = pipe.ends[end];
        while (to.coming.size() > 1 && random_.below(4) != 0 && to.coming.back().kind == Transit::Kind::frame) {
            to.bytes -= to.coming.back().frame.size();
            to.coming.pop_back();
        }
        if (end == spared) continue;
        put(to, {Transit::Kind::closed, {}, {}}, within(random_, 50000), now);
    }
}

void Network::worsen(int nodes, Time now) {
    if (isWell_) return;
    for (auto& [number, pipe] : pipes_) {
        if (!pipe.ends[0].isOpen && !pipe.ends[1].isOpen) continue;
        if (random_.chance(weather_.cut)) cut(pipe, false, now);
        if (random_.chance(weather_.halfCut)) cut(pipe, true, now);
    }
    if (!random_.chance(weather_.partition)) return;
    const int from = static_cast<int>(random_.below(static_cast<uint64_t>(nodes)));
    const int to = (from + 1 + static_cast<int>(random_.below(static_cast<uint64_t>(nodes - 1)))) % nodes;
    const bool isOneWay = random_.below(2) == 0;
    trace_.add("no way from %d to %d%s", from, to, isOneWay ? "" : " and back");
    const Time until = now + within(random_, 800000);
    blocked_[{from, to}] = until;
    if (!isOneWay) blocked_[{to, from}] = until;
    for (auto& [number, pipe] : pipes_) {
        const int other = otherOf(pipe, from);
        const auto& ends = pipe.ends;
        if (ends[static_cast<size_t>(other)].node == to && ends[static_cast<size_t>(1 - other)].node == from)
            fault(pipe);
    }
}

/// What was cut before without a word is still to be found out by its silence, as on a real network.
void Network::heal() {
    isWell_ = true;
    blocked_.clear();
    trace_.add("the network is well again");
}

void Network::crash(int node, bool isTold, Time now) {
    for (auto& [number, pipe] : pipes_) {
        if (pipe.ends[0].node != node && pipe.ends[1].node != node) continue;
        fault(pipe);
        const int other = otherOf(pipe, node);
        End& own = pipe.ends[static_cast<size_t>(1 - other)];
        own.isOpen = false;
        own.coming.clear();
        own.bytes = 0;
        if (isTold || !pipe.ends[static_cast<size_t>(other)].isOpen) tellClosed(pipe, other, now);
    }
}

void Network::trouble(int node) {
    for (auto& [number, pipe] : pipes_) {
        if (pipe.ends[0].node == node || pipe.ends[1].node == node) fault(pipe);
    }
}

bool Network::wasTroubled(Connection connection) const {
    const uint64_t number = static_cast<uint64_t>(connection);
    const auto found = pipes_.find(number);
    if (found != pipes_.end()) return found->second.isTroubled;
    const auto gone = troubled_.find(number);
    return gone != troubled_.end() && gone->second;
}

}  // namespace simulate
