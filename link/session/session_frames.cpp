// The frames of a session, in the order in which they leave: greeting, what the far side waits for, notes, signals.

#include "link/session/session.h"

namespace linx::link {

std::optional<Bytes> Session::nextFrame(Time now) {
    if (state_ == State::ended) return farewell();
    std::optional<Bytes> frame = greeting_.nextFrame(nextOut_);
    if (!frame && state_ == State::up) frame = urgentFrame(now);
    if (!frame && state_ == State::up && inFlight_.hasRoom(terms()->windowOut)) {
        if (!notes_.empty()) {
            frame = sealNote();
        } else if (std::optional<Outgoing::Filled> filled = outgoing_.nextFrame()) {
            const uint64_t sequence = nextOut_;
            Note& note = filled->note;
            frame = seal(std::move(note.frame), note.type, note.channel, filled->flags);
            inFlight_.add(sequence, frame->size(), note.channel, filled->whole);
        }
    }
    if (!frame) return std::nullopt;
    ++counts_.framesOut;
    liveness_.sent(now);
    return frame;
}

std::optional<Bytes> Session::urgentFrame(Time now) {
    if (const std::optional<uint64_t> sequence = incoming_.dueAcknowledgement(now)) {
        return numberFrame(Type::acknowledgement, 0, *sequence);
    }
    if (const std::optional<OwnId> id = own_.takeDueCredit()) {
        return numberFrame(Type::credit, numberOf(*id), own_.find(*id)->allowed);
    }
    if (liveness_.wantsPing(now)) return pingFrame(now);
    return std::nullopt;
}

Bytes Session::pingFrame(Time now) {
    Ping ping;
    ping.stamp = static_cast<uint32_t>(now.count());
    if (stamp_) {
        ping.echo = *stamp_;
        ping.held = static_cast<uint32_t>((now - stamped_).count());
    }
    Bytes frame = openFrame();
    write(Writer(frame), ping);
    return seal(std::move(frame), Type::ping, 0, stamp_ ? flagEchoes : uint8_t(0));
}

Bytes Session::numberFrame(Type type, uint32_t channel, uint64_t number) {
    Bytes frame = openFrame();
    Writer(frame).u64(number);
    return seal(std::move(frame), type, channel);
}

Bytes Session::sealNote() {
    Note note = std::move(notes_.front());
    notes_.pop_front();
    const uint64_t sequence = nextOut_;
    Bytes frame = seal(std::move(note.frame), note.type, note.channel);
    inFlight_.add(sequence, frame.size(), note.channel, 0);
    if (note.type == Type::end) own_.endIsTold(OwnId(note.channel));
    return frame;
}

Bytes Session::seal(Bytes frame, Type type, uint32_t channel, uint8_t flags) {
    Header header;
    header.tag = terms()->tagOut;
    header.sequence = nextOut_++;
    header.channel = channel;
    header.type = type;
    header.flags = flags;
    closeFrame(frame, header);
    return frame;
}

/// The far side learns the reason, if the connection still carries it.
std::optional<Bytes> Session::farewell() {
    if (!farewellDue_) return std::nullopt;
    farewellDue_ = false;
    Header header;
    header.type = Type::bye;
    if (terms() && greeting_.isSaid()) {
        header.tag = terms()->tagOut;
        header.sequence = nextOut_++;
    } else if (reason_ != End::version) {
        return std::nullopt;
    }
    Bytes frame = openFrame();
    Writer(frame).u8(static_cast<uint8_t>(reason_));
    closeFrame(frame, header);
    return frame;
}

}  // namespace linx::link
