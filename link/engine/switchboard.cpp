#include "link/engine/switchboard.h"

namespace linx::link {
namespace {

/// Nobody may keep the others from being served by talking without a pause.
constexpr int mostNews = 256;
constexpr int mostRounds = 16;

/// An engine that is full does not say when it is so no longer.
constexpr Time patience = std::chrono::milliseconds(5);

template <class... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

}  // namespace

void Switchboard::add(const Settings& settings, Peer::Side side, bool dials) {
    peers_.push_back(std::make_unique<Peer>(settings, side, dials));
    troubles_.emplace_back();
}

Time Switchboard::turn(Time now) {
    bool isBusy = true;
    for (int round = 0; isBusy && round < mostRounds; ++round) {
        const bool hasHeard = hear(now);
        // Always, not only when it is due: whoever has not looked for long forgives the silence.
        for (const auto& peer : peers_) peer->tick(random_(), now);
        isBusy = speak(now) || hasHeard;
    }
    if (isBusy) return now;
    Time deadline = engine_.deadline();
    for (const auto& peer : peers_) deadline = std::min(deadline, peer->deadline());
    return isHeldUp_ ? std::min(deadline, now + patience) : deadline;
}

bool Switchboard::hear(Time now) {
    for (int i = 0; i < mostNews; ++i) {
        std::optional<News> news = engine_.next(now);
        if (!news) return i != 0;
        take(*news, now);
    }
    return true;
}

void Switchboard::take(News& news, Time now) {
    const auto find = [this](Connection connection) { return lines_.find(connection); };
    std::visit(Overloaded{
                   [&](const Connected& it) {
                       if (it.dialledHere) troubles_[indexOf(it.peer)].clear();
                       lines_[it.connection].peer = it.peer;
                       peer(it.peer).connected(it.connection, it.dialledHere, random_(), now);
                   },
                   [&](const DialFailed& it) {
                       troubles_[indexOf(it.peer)] = it.reason;
                       peer(it.peer).dialFailed(random_(), now);
                   },
                   [&](const FrameArrived& it) {
                       const auto line = find(it.connection);
                       if (line == lines_.end()) return;
                       Peer& from = peer(line->second.peer);
                       from.arrived(it.connection, it.frame.data(), it.frame.size(), random_(), now);
                   },
                   [&](const Disconnected& it) {
                       const auto line = find(it.connection);
                       if (line == lines_.end()) return;
                       Peer& from = peer(line->second.peer);
                       lines_.erase(line);
                       from.disconnected(it.connection, random_(), now);
                   },
               },
               news);
}

/// Whether there was anything to be said or done.
bool Switchboard::speak(Time now) {
    bool hasSpoken = false;
    isHeldUp_ = false;
    for (auto& [connection, line] : lines_) hasSpoken = carry(connection, line, now) || hasSpoken;
    for (size_t i = 0; i < peers_.size(); ++i) {
        hasSpoken = close(*peers_[i]) || hasSpoken;
        if (!peers_[i]->wantsDial(now)) continue;
        engine_.dial(PeerNumber(i), now);
        hasSpoken = true;
    }
    return hasSpoken;
}

bool Switchboard::carry(Connection connection, Line& line, Time now) {
    bool hasSent = false;
    for (;;) {
        if (!line.waiting) line.waiting = peer(line.peer).nextFrame(connection, now);
        if (!line.waiting) return hasSent;
        const Carried carried = engine_.send(connection, *line.waiting);
        if (carried == Carried::later) {
            isHeldUp_ = true;
            return hasSent;
        }
        // Where the other end is gone, which the engine tells in its turn, nobody misses the frame.
        line.waiting.reset();
        hasSent = true;
    }
}

/// Those that have served, whose last words have left.
bool Switchboard::close(Peer& peer) {
    bool hasClosed = false;
    while (const std::optional<Connection> served = peer.toClose()) {
        if (lines_.erase(*served) != 0) engine_.close(*served);
        hasClosed = true;
    }
    return hasClosed;
}

}  // namespace linx::link
