#include "link/session/peer.h"

namespace linx::link {

void Peer::connected(Connection connection, bool dialledHere, uint64_t random, Time now) {
    if (dialledHere) isDialling_ = false;
    auto line = std::make_unique<Line>(connection, dialledHere, settings_, random, now);
    if (!current_) {
        current_ = std::move(line);
    } else if (current_->session.state() == Session::State::up) {
        std::unique_ptr<Line>& loser = dialledHere ? line : rival_;  // dialled before the other one was up
        if (loser) close(loser, now);
        if (line) rival_ = std::move(line);
    } else {
        // Both dialled at once, or the one that greets is an old one's remains.
        const bool isNewBetter = current_->isDialledHere == dialledHere || isPreferred(dialledHere);
        if (isNewBetter) std::swap(current_, line);
        close(line, now);
    }
}

void Peer::arrived(Connection connection, const uint8_t* data, size_t size, uint64_t random, Time now) {
    for (const auto& line : {current_.get(), rival_.get()}) {
        if (line != nullptr && line->connection == connection) line->session.arrived(data, size, now);
    }
    settle(random, now);
}

void Peer::disconnected(Connection connection, uint64_t random, Time now) {
    for (const auto& line : {current_.get(), rival_.get()}) {
        if (line != nullptr && line->connection == connection) line->session.disconnected();
    }
    settle(random, now);
}

void Peer::dialFailed(uint64_t random, Time now) {
    isDialling_ = false;
    backoff_.failed(random, now);
}

void Peer::tick(uint64_t random, Time now) {
    if (current_) current_->session.tick(now);
    if (rival_) rival_->session.tick(now);
    settle(random, now);
}

/// What follows from a session's having come up or ended.
void Peer::settle(uint64_t random, Time now) {
    if (rival_ && rival_->session.state() == Session::State::ended) close(rival_, now);
    if (rival_ && rival_->session.state() == Session::State::up) {
        if (current_) {
            current_->session.end(End::replaced);
            close(current_, now);
        }
        current_ = std::move(rival_);
    }
    if (current_ && current_->session.state() == Session::State::ended) {
        close(current_, now);
        current_ = std::move(rival_);
        if (!current_) backoff_.failed(random, now);
    }
    if (current_ && !isBegun_ && current_->session.state() == Session::State::up) begin();
}

void Peer::begin() {
    isBegun_ = true;
    backoff_.succeeded();
    for (const auto& [name, seek] : sought_) current_->session.seek(seek);
}

void Peer::close(std::unique_ptr<Line>& line, Time now) {
    Session& session = line->session;
    const bool wasCurrent = &line == &current_;
    session.end(End::replaced);
    while (session.event() != nullptr) past_.push_back(session.take());
    closing_.push_back({line->connection, session.nextFrame(now)});
    if (wasCurrent) isBegun_ = false;
    line.reset();
}

bool Peer::wantsDial(Time now) {
    if (!dials_ || isDialling_ || current_ || !backoff_.isDue(now)) return false;
    isDialling_ = true;
    return true;
}

std::optional<Bytes> Peer::nextFrame(Connection connection, Time now) {
    for (const auto& line : {current_.get(), rival_.get()}) {
        if (line != nullptr && line->connection == connection) return line->session.nextFrame(now);
    }
    for (Closing& closing : closing_) {
        if (closing.connection == connection && closing.farewell) {
            std::optional<Bytes> farewell = std::move(closing.farewell);
            closing.farewell.reset();
            return farewell;
        }
    }
    return std::nullopt;
}

std::optional<Connection> Peer::toClose() {
    if (closing_.empty()) return std::nullopt;
    const Connection connection = closing_.front().connection;
    closing_.pop_front();
    return connection;
}

Time Peer::deadline() const {
    if (!current_) return dials_ && !isDialling_ ? backoff_.due() : Time::max();
    const Time deadline = current_->session.deadline();
    return rival_ ? std::min(deadline, rival_->session.deadline()) : deadline;
}

Session* Peer::session() {
    const bool isUp = past_.empty() && current_ && current_->session.state() == Session::State::up;
    return isUp ? &current_->session : nullptr;
}

bool Peer::seek(const Seek& seek) {
    if (sought_.count(seek.name) != 0) return true;
    if (sought_.size() >= mostSeeks) return false;
    sought_.emplace(seek.name, seek);
    return !isBegun_ || current_->session.seek(seek);
}

const Event* Peer::event() const {
    if (!past_.empty()) return &past_.front();
    return current_ ? current_->session.event() : nullptr;
}

Event Peer::take() {
    if (past_.empty()) return current_->session.take();
    Event event = std::move(past_.front());
    past_.pop_front();
    return event;
}

void Peer::leave(Time latest) {
    dials_ = false;
    if (current_) current_->session.leave(latest);
}

}  // namespace linx::link
