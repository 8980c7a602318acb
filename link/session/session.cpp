#include "link/session/session.h"

namespace linx::link {
namespace {

constexpr Time longestGreeting = std::chrono::seconds(2);

uint32_t stampOf(Time now) {
    return static_cast<uint32_t>(now.count());
}

}  // namespace

const char* textOf(End end) {
    switch (end) {
        case End::bye:
            return "one side took its leave";
        case End::disconnected:
            return "the connection was lost";
        case End::silence:
            return "the peer was silent";
        case End::gap:
            return "a frame is missing";
        case End::malformed:
            return "the peer sent what no link sends";
        case End::version:
            return "no version in common";
        case End::self:
            return "this node is its own peer";
        case End::greetingLate:
            return "the peer did not greet";
        case End::replaced:
            return "a newer connection took over";
    }
    return "unknown";
}

Session::Session(const Settings& settings, uint64_t nonce, Time now)
    : node_(settings.node),
      tolerance_(std::chrono::milliseconds(settings.tolerance)),
      greetingEnds_(now + longestGreeting),
      greeting_(settings, nonce),
      liveness_(now) {}

void Session::arrived(const uint8_t* data, size_t size, Time now) {
    if (state_ == State::ended) return;
    liveness_.runs(now);
    const std::optional<FrameView> frame = readFrame(data, size);
    if (!frame) return end(End::malformed);
    const Header& header = frame->header;
    if (header.tag == 0) return greet(*frame, now);
    if (!terms() || header.tag != terms()->tagIn) {
        ++counts_.foreignTags;
        return;
    }
    if (header.sequence < nextIn_) {
        ++counts_.doubled;
        return;
    }
    if (header.sequence != nextIn_) return end(End::gap);
    ++nextIn_;
    ++counts_.framesIn;
    liveness_.heard(now);
    if (!incoming_.arrived(header.sequence, header, now) || !handle(*frame, now)) end(End::malformed);
}

void Session::greet(const FrameView& frame, Time now) {
    if (state_ != State::greeting) {  // an old connection's, since the peer has greeted before
        ++counts_.foreignTags;
        return;
    }
    const std::optional<End> reason = greeting_.take(frame);
    if (reason) return end(*reason);
    liveness_.agree(tolerance_, terms()->interval);
    liveness_.heard(now);
    incoming_.agree(terms()->windowIn);
}

bool Session::handle(const FrameView& frame, Time now) {
    if (state_ == State::greeting) {
        if (frame.header.type == Type::bye) return handleBye(frame);
        return frame.header.type == Type::ready && handleReady();
    }
    switch (frame.header.type) {
        case Type::hello:
        case Type::ready:
            return false;
        case Type::bye:
            return handleBye(frame);
        case Type::ping:
            return handlePing(frame, now);
        case Type::acknowledgement:
            return handleAcknowledgement(frame);
        case Type::credit:
            return handleCredit(frame);
        case Type::seek:
            return handleSeek(frame);
        case Type::refusal: {
            const std::optional<Refusal> refusal = readRefusal(frame.body());
            if (refusal) incoming_.tell(WasRefused{*refusal});
            return refusal.has_value();
        }
        case Type::announcement:
            return handleAnnouncement(frame);
        case Type::end:
            return handleEnd(frame);
        case Type::signals:
            return incoming_.takeSignals(frame);
        case Type::fragment:
            return incoming_.takeFragment(frame);
    }
    return false;
}

bool Session::handleReady() {
    state_ = State::up;
    incoming_.tell(Up{terms()->peer});
    return true;
}

bool Session::handleBye(const FrameView& frame) {
    Reader body = frame.body();
    body.u8();  // its reason, which may be one that only later versions know
    if (!body.isAtEnd()) return false;
    end(End::bye);
    farewellDue_ = false;
    return true;
}

bool Session::handlePing(const FrameView& frame, Time now) {
    const std::optional<Ping> ping = readPing(frame.body());
    if (!ping) return false;
    stamp_ = ping->stamp;
    stamped_ = now;
    // Numbers of its own choice: the worst that they do is a round trip that nobody believes.
    if ((frame.header.flags & flagEchoes) != 0) counts_.roundTrip = Time(stampOf(now) - ping->echo - ping->held);
    return true;
}

bool Session::handleAcknowledgement(const FrameView& frame) {
    Reader body = frame.body();
    const uint64_t sequence = body.u64();
    if (!body.isAtEnd() || sequence >= nextOut_) return false;
    inFlight_.acknowledged(sequence);
    return true;
}

bool Session::handleCredit(const FrameView& frame) {
    Reader body = frame.body();
    const uint64_t allowed = body.u64();
    return body.isAtEnd() && outgoing_.credit(FarId(frame.header.channel), allowed);
}

bool Session::handleSeek(const FrameView& frame) {
    std::optional<Seek> seek = readSeek(frame.body());
    if (!seek || ++seeksIn_ > mostSeeks) return false;
    for (const NodeId& passed : seek->passed) {
        if (passed != node_) continue;
        ++counts_.loops;
        refuse({seek->name, Refused::loop});
        return true;
    }
    incoming_.tell(Sought{std::move(*seek)});
    return true;
}

bool Session::handleAnnouncement(const FrameView& frame) {
    std::optional<Announcement> announcement = readAnnouncement(frame.body());
    const FarId id = FarId(frame.header.channel);
    if (!announcement || !outgoing_.open(id, *announcement)) return false;
    incoming_.tell(Announced{id, std::move(announcement->name)});
    return true;
}

bool Session::handleEnd(const FrameView& frame) {
    const FarId id = FarId(frame.header.channel);
    if (frame.header.size != 0 || !outgoing_.close(id)) return false;
    incoming_.tell(Ended{id});
    return true;
}

void Session::tick(Time now) {
    if (state_ == State::ended) return;
    liveness_.runs(now);
    if (state_ == State::greeting) {
        if (now >= greetingEnds_) end(End::greetingLate);
    } else if (liveness_.isSilent(now)) {
        end(End::silence);
    } else if (leaving_ && (now >= *leaving_ || isAtRest())) {
        end(End::bye);
    }
}

Time Session::deadline() {
    if (state_ == State::ended) return Time::max();
    if (state_ == State::greeting) return greetingEnds_;
    Time deadline = liveness_.deadline();
    if (const std::optional<Time> acknowledgement = incoming_.deadline())
        deadline = std::min(deadline, *acknowledgement);
    if (leaving_) deadline = std::min(deadline, isAtRest() ? Time(0) : *leaving_);
    return deadline;
}

void Session::end(End reason) {
    if (state_ == State::ended) return;
    const bool wasUp = state_ == State::up;
    state_ = State::ended;
    reason_ = reason;
    farewellDue_ = reason != End::disconnected;
    if (wasUp) incoming_.tellAtLast({reason, losses()});
}

std::vector<Loss> Session::losses() const {
    std::vector<Loss> losses = outgoing_.waiting();
    for (const auto& [channel, signals] : inFlight_.signals()) {
        const std::string* const name = outgoing_.nameOf(FarId(channel));
        losses.push_back({FarId(channel), name == nullptr ? "" : *name, signals});
    }
    return losses;
}

std::optional<OwnId> Session::announce(const std::string& name, uint32_t credit) {
    if (state_ != State::up) return std::nullopt;
    return own_.announce(name, credit);
}

bool Session::seek(const Seek& seek) {
    if (state_ != State::up || seeksOut_ >= mostSeeks || !isName(seek.name) || seek.passed.size() > mostPassed) {
        return false;
    }
    ++seeksOut_;
    Note note = {Type::seek, 0, openFrame()};
    write(Writer(note.frame), seek);
    notes_.push_back(std::move(note));
    return true;
}

void Session::refuse(const Refusal& refusal) {
    if (state_ != State::up) return;
    Note note = {Type::refusal, 0, openFrame()};
    write(Writer(note.frame), refusal);
    notes_.push_back(std::move(note));
}

Sent Session::send(FarId to, OwnId from, uint32_t number, Bytes&& payload) {
    if (state_ != State::up) return Sent::gone;
    if (leaving_) return Sent::later;
    return outgoing_.send(to, from, number, std::move(payload), terms()->largestSignal);
}

Counts Session::counts() const {
    Counts counts = counts_;
    counts.strays = incoming_.strays();
    counts.undeliverable = outgoing_.undeliverable();
    return counts;
}

}  // namespace linx::link
