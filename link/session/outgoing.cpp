#include "link/session/outgoing.h"

#include "link/session/charge.h"

namespace linx::link {
namespace {

constexpr int64_t quantum = frameBytes;

}  // namespace

bool Outgoing::open(FarId id, const Announcement& announcement) {
    if (numberOf(id) != next_ || channels_.size() >= mostEndpoints) return false;
    if (!names_.insert(announcement.name).second) return false;
    ++next_;
    Channel& channel = channels_[numberOf(id)];
    channel.name = announcement.name;
    channel.credit = announcement.credit;
    channel.allowed = announcement.credit;
    return true;
}

bool Outgoing::close(FarId id) {
    const auto found = channels_.find(numberOf(id));
    if (found == channels_.end()) return false;
    Channel& channel = found->second;
    undeliverable_ += channel.queue.size();
    bytes_ -= channel.bytes;
    if (channel.isPartial) --partials_;
    std::deque<Signal> dropped = std::move(channel.queue);
    names_.erase(channel.name);
    channels_.erase(found);
    for (const Signal& signal : dropped) own_.letGo(signal.from);
    return true;
}

bool Outgoing::credit(FarId id, uint64_t allowed) {
    const auto found = channels_.find(numberOf(id));
    if (found == channels_.end()) return wasAnnounced(id);  // it was under way when the endpoint ended
    Channel& channel = found->second;
    if (allowed < channel.allowed || allowed > channel.charged + channel.credit) return false;
    channel.allowed = allowed;
    giveTurn(numberOf(id), channel);
    return true;
}

Sent Outgoing::send(FarId to, OwnId from, uint32_t number, Bytes&& payload, uint32_t largest) {
    const auto found = channels_.find(numberOf(to));
    if (found == channels_.end() || !own_.isAlive(from)) return Sent::gone;
    if (payload.size() + sizeof number > largest) return Sent::tooLarge;
    Channel& channel = found->second;
    const size_t size = signalHeadBytes + payload.size();
    if (channel.bytes != 0 && channel.bytes + size > mostQueued) return Sent::later;
    channel.queue.push_back({from, number, std::move(payload)});
    channel.bytes += size;
    bytes_ += size;
    own_.holdBack(from);
    giveTurn(numberOf(to), channel);
    return Sent::taken;
}

bool Outgoing::isLarge(const Signal& signal) {
    return sizeOf(signal) > bodyBytes;
}

bool Outgoing::hasCredit(const Channel& channel) const {
    return channel.charged + chargeOf(channel.queue.front().payload.size(), channel.credit) <= channel.allowed;
}

/// Whether the channel's first signal, or what is left of it, may go now.
bool Outgoing::mayBegin(const Channel& channel) const {
    if (channel.isPartial) return true;
    return hasCredit(channel) && (partials_ < mostPartials || !isLarge(channel.queue.front()));
}

/// A channel stands among the turns while it has signals and credit for them; one that waits for credit costs
/// nothing.
void Outgoing::giveTurn(uint32_t number, Channel& channel) {
    if (channel.hasTurn || channel.queue.empty() || !(channel.isPartial || hasCredit(channel))) return;
    channel.hasTurn = true;
    channel.deficit = 0;
    turns_.push_back(number);
}

std::optional<Outgoing::Filled> Outgoing::nextFrame() {
    // Twice round at most: each has its deficit filled up once.
    for (size_t looks = 2 * turns_.size(); looks != 0 && !turns_.empty(); --looks) {
        const uint32_t number = turns_.front();
        const auto found = channels_.find(number);
        if (found == channels_.end()) {
            turns_.pop_front();
            continue;
        }
        Channel& channel = found->second;
        if (channel.deficit <= 0 || !mayBegin(channel)) {
            if (channel.deficit <= 0) channel.deficit += quantum;
            turns_.pop_front();
            turns_.push_back(number);
            continue;
        }
        Filled filled = fill(number, channel);
        channel.deficit -= static_cast<int64_t>(filled.note.frame.size());
        if (channel.queue.empty() || !(channel.isPartial || hasCredit(channel))) {
            channel.hasTurn = false;
            turns_.pop_front();
        }
        return filled;
    }
    return std::nullopt;
}

Outgoing::Filled Outgoing::fill(uint32_t number, Channel& channel) {
    return isLarge(channel.queue.front()) ? fillWithFragment(number, channel) : fillWithSignals(number, channel);
}

Outgoing::Filled Outgoing::fillWithSignals(uint32_t number, Channel& channel) {
    Filled filled = {{Type::signals, number, openFrame()}};
    Bytes& frame = filled.note.frame;
    while (!channel.queue.empty() && hasCredit(channel)) {
        const Signal& signal = channel.queue.front();
        if (frame.size() + sizeOf(signal) > frameBytes) break;
        Writer writer(frame);
        write(writer, SignalHead{numberOf(signal.from), signal.number, static_cast<uint32_t>(signal.payload.size())});
        writer.raw(signal.payload);
        channel.charged += chargeOf(signal.payload.size(), channel.credit);
        ++filled.whole;
        pop(channel);
    }
    return filled;
}

Outgoing::Filled Outgoing::fillWithFragment(uint32_t number, Channel& channel) {
    Filled filled = {{Type::fragment, number, openFrame()}};
    Bytes& frame = filled.note.frame;
    Writer writer(frame);
    const Signal& signal = channel.queue.front();
    if (!channel.isPartial) {
        filled.flags = flagFirst;
        write(writer, SignalHead{numberOf(signal.from), signal.number, static_cast<uint32_t>(signal.payload.size())});
        channel.charged += chargeOf(signal.payload.size(), channel.credit);
        channel.isPartial = true;
        channel.offset = 0;
        ++partials_;
    }
    const size_t part = std::min(signal.payload.size() - channel.offset, frameBytes - frame.size());
    writer.raw(signal.payload.data() + channel.offset, part);
    channel.offset += part;
    if (channel.offset == signal.payload.size()) {
        channel.isPartial = false;
        --partials_;
        filled.whole = 1;
        pop(channel);
    }
    return filled;
}

void Outgoing::pop(Channel& channel) {
    const OwnId from = channel.queue.front().from;
    channel.bytes -= sizeOf(channel.queue.front());
    bytes_ -= sizeOf(channel.queue.front());
    channel.queue.pop_front();
    own_.letGo(from);
}

const std::string* Outgoing::nameOf(FarId id) const {
    const auto found = channels_.find(numberOf(id));
    return found == channels_.end() ? nullptr : &found->second.name;
}

std::vector<Outgoing::Queued> Outgoing::queued() const {
    std::vector<Queued> queued;
    for (const auto& [number, channel] : channels_) {
        if (channel.queue.empty()) continue;
        queued.push_back({channel.name, channel.queue.size(), channel.bytes, channel.allowed - channel.charged});
    }
    return queued;
}

std::vector<Loss> Outgoing::waiting() const {
    std::vector<Loss> losses;
    for (const auto& [number, channel] : channels_) {
        if (!channel.queue.empty()) losses.push_back({FarId(number), channel.name, channel.queue.size()});
    }
    return losses;
}

}  // namespace linx::link
