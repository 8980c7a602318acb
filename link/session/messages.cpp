#include "link/session/messages.h"

#include <algorithm>

namespace linx::link {
namespace {

bool isWithin(uint32_t value, uint32_t least, uint32_t most) {
    return value >= least && value <= most;
}

void writeName(Writer& to, const std::string& name) {
    to.u8(static_cast<uint8_t>(name.size()));
    to.raw(name);
}

std::string readName(Reader& from) {
    const size_t size = from.u8();
    const uint8_t* const bytes = from.raw(size);
    return bytes == nullptr ? std::string() : std::string(bytes, bytes + size);
}

NodeId readNode(Reader& from) {
    NodeId node = {};
    const uint8_t* const bytes = from.raw(node.size());
    if (bytes != nullptr) std::copy_n(bytes, node.size(), node.begin());
    return node;
}

}  // namespace

bool isName(const std::string& name) {
    return !name.empty() && name.size() <= longestName && name.find('\0') == std::string::npos;
}

void write(Writer to, const Hello& hello) {
    to.u32(magic);
    to.u16(hello.lowestVersion);
    to.u16(hello.highestVersion);
    to.u32(hello.features);
    to.raw(hello.node);
    to.u64(hello.nonce);
    to.u8(static_cast<uint8_t>(hello.byteOrder));
    to.u8(hello.wordBytes);
    to.u16(0);
    to.u32(hello.largestSignal);
    to.u32(hello.window);
    to.u32(hello.tolerance);
}

std::optional<Hello> readHello(Reader from) {
    if (from.u32() != magic) return std::nullopt;
    Hello hello;
    hello.lowestVersion = from.u16();
    hello.highestVersion = from.u16();
    hello.features = from.u32();
    hello.node = readNode(from);
    hello.nonce = from.u64();
    const uint8_t order = from.u8();
    hello.byteOrder = static_cast<ByteOrder>(order);
    hello.wordBytes = from.u8();
    from.u16();
    hello.largestSignal = from.u32();
    hello.window = from.u32();
    hello.tolerance = from.u32();
    const bool isSound =
        hello.lowestVersion <= hello.highestVersion && (order == 1 || order == 2) &&
        (hello.wordBytes == 4 || hello.wordBytes == 8) && isWithin(hello.largestSignal, 4, mostSignal) &&
        isWithin(hello.window, leastWindow, mostWindow) && isWithin(hello.tolerance, leastTolerance, mostTolerance);
    if (from.failed() || !isSound) return std::nullopt;
    return hello;
}

void write(Writer to, const Seek& seek) {
    to.u8(static_cast<uint8_t>(seek.passed.size()));
    for (const NodeId& node : seek.passed) to.raw(node);
    writeName(to, seek.name);
}

std::optional<Seek> readSeek(Reader from) {
    Seek seek;
    const size_t passed = from.u8();
    if (passed > mostPassed) return std::nullopt;
    for (size_t i = 0; i < passed; ++i) seek.passed.push_back(readNode(from));
    seek.name = readName(from);
    if (!from.isAtEnd() || !isName(seek.name)) return std::nullopt;
    return seek;
}

void write(Writer to, const Refusal& refusal) {
    to.u8(static_cast<uint8_t>(refusal.reason));
    writeName(to, refusal.name);
}

std::optional<Refusal> readRefusal(Reader from) {
    Refusal refusal;
    const uint8_t reason = from.u8();
    refusal.reason = static_cast<Refused>(reason);
    refusal.name = readName(from);
    const bool isKnown =
        reason >= static_cast<uint8_t>(Refused::notExported) && reason <= static_cast<uint8_t>(Refused::tooMany);
    if (!from.isAtEnd() || !isKnown || !isName(refusal.name)) return std::nullopt;
    return refusal;
}

void write(Writer to, const Announcement& announcement) {
    to.u32(announcement.credit);
    writeName(to, announcement.name);
}

std::optional<Announcement> readAnnouncement(Reader from) {
    Announcement announcement;
    announcement.credit = from.u32();
    announcement.name = readName(from);
    const bool isSound = isWithin(announcement.credit, leastCredit, mostCredit) && isName(announcement.name);
    if (!from.isAtEnd() || !isSound) return std::nullopt;
    return announcement;
}

void write(Writer to, const Ping& ping) {
    to.u32(ping.stamp);
    to.u32(ping.echo);
    to.u32(ping.held);
}

std::optional<Ping> readPing(Reader from) {
    Ping ping;
    ping.stamp = from.u32();
    ping.echo = from.u32();
    ping.held = from.u32();
    if (!from.isAtEnd()) return std::nullopt;
    return ping;
}

void write(Writer to, const SignalHead& head) {
    to.u32(head.source);
    to.u32(head.number);
    to.u32(head.size);
}

std::optional<SignalHead> readSignalHead(Reader& from) {
    SignalHead head;
    head.source = from.u32();
    head.number = from.u32();
    head.size = from.u32();
    if (from.failed() || head.size > mostSignal - 4) return std::nullopt;
    return head;
}

}  // namespace linx::link
