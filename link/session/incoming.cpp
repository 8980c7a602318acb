#include "link/session/incoming.h"

namespace linx::link {
namespace {

/// Acknowledgements are few while much comes, and not late when it ends.
constexpr Time longestDelay = std::chrono::milliseconds(10);
constexpr size_t largestUnbroken = bodyBytes - signalHeadBytes;

}  // namespace

bool Incoming::arrived(uint64_t sequence, const Header& header, Time now) {
    sequence_ = sequence;
    if (!fillsWindow(header.type)) return true;
    const size_t bytes = headerBytes + header.size;
    if (unacknowledgedBytes_ + bytes > window_) return false;
    unacknowledged_.push_back({sequence, bytes, now});
    unacknowledgedBytes_ += bytes;
    return true;
}

bool Incoming::takeSignals(const FrameView& frame) {
    const OwnId to = OwnId(frame.header.channel);
    const OwnEndpoint* const endpoint = own_.find(to);  // null from when the far side was told of its end
    if (!own_.wasAnnounced(to) || (endpoint != nullptr && endpoint->partial)) return false;
    Reader body = frame.body();
    while (body.left() != 0) {
        const std::optional<SignalHead> head = readSignalHead(body);
        if (!head || !far_.isAlive(FarId(head->source))) return false;
        const uint8_t* const bytes = body.raw(head->size);
        if (bytes == nullptr) return false;
        if (endpoint != nullptr && !own_.charge(to, head->size)) return false;
        if (endpoint == nullptr || endpoint->hasEnded) {
            ++strays_;
            continue;
        }
        tell(Arrived{FarId(head->source), to, head->number, Bytes(bytes, bytes + head->size)});
    }
    return true;
}

bool Incoming::takeFragment(const FrameView& frame) {
    const OwnId to = OwnId(frame.header.channel);
    if (!own_.wasAnnounced(to)) return false;
    const bool isFirst = (frame.header.flags & flagFirst) != 0;
    Reader body = frame.body();
    if (!own_.isAlive(to)) return !isFirst || dropStray(to, body);
    OwnEndpoint& endpoint = *own_.find(to);
    if (isFirst == endpoint.partial.has_value() || (isFirst && !begin(to, body))) return false;
    Partial& partial = *endpoint.partial;
    const size_t size = body.left();
    if (size == 0 || size > partial.size - partial.payload.size()) return false;
    const uint8_t* const bytes = body.raw(size);
    partial.payload.insert(partial.payload.end(), bytes, bytes + size);
    if (partial.payload.size() < partial.size) return true;
    if (!far_.isAlive(partial.from)) return false;
    Partial whole = std::move(partial);
    endpoint.partial.reset();
    tell(Arrived{whole.from, to, whole.number, std::move(whole.payload)});
    return true;
}

/// What follows of it is told by its being no first one.
bool Incoming::dropStray(OwnId to, Reader& body) {
    ++strays_;
    const std::optional<SignalHead> head = readSignalHead(body);
    return head && (own_.find(to) == nullptr || own_.charge(to, head->size));
}

/// All memory for the signal is taken now: it is never half received for want of it.
bool Incoming::begin(OwnId to, Reader& body) {
    const std::optional<SignalHead> head = readSignalHead(body);
    if (!head || head->size <= largestUnbroken || !far_.isAlive(FarId(head->source))) return false;
    if (own_.partials() >= mostPartials || !own_.charge(to, head->size)) return false;
    Partial& partial = own_.find(to)->partial.emplace(Partial{FarId(head->source), head->number, head->size, {}});
    partial.payload.reserve(head->size);
    return true;
}

void Incoming::tell(Event event) {
    events_.push_back({sequence_, std::move(event)});
}

void Incoming::tellAtLast(Down down) {
    const bool isKnown = events_.empty() || !std::holds_alternative<Up>(events_.front().event);
    events_.clear();
    unacknowledged_.clear();
    unacknowledgedBytes_ = takenFrames_ = takenBytes_ = 0;
    if (isKnown) tell(std::move(down));
}

Event Incoming::take() {
    Event event = std::move(events_.front().event);
    events_.pop_front();
    return event;
}

void Incoming::lookAtTaken() {
    for (; takenFrames_ < unacknowledged_.size() && unacknowledged_[takenFrames_].sequence <= taken();
         ++takenFrames_) {
        takenBytes_ += unacknowledged_[takenFrames_].bytes;
    }
}

std::optional<uint64_t> Incoming::dueAcknowledgement(Time now) {
    const std::optional<Time> latest = deadline();
    if (!latest || (takenBytes_ < window_ / 4 && now < *latest)) return std::nullopt;
    unacknowledged_.erase(unacknowledged_.begin(),
                          unacknowledged_.begin() + static_cast<std::ptrdiff_t>(takenFrames_));
    unacknowledgedBytes_ -= takenBytes_;
    takenFrames_ = takenBytes_ = 0;
    return taken();
}

std::optional<Time> Incoming::deadline() {
    lookAtTaken();
    if (takenFrames_ == 0) return std::nullopt;
    return unacknowledged_.front().arrived + longestDelay;
}

}  // namespace linx::link
