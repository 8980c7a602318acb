#include "tools/captured.h"

#include "host/arena/layout.h"

namespace tools {
namespace {

constexpr unsigned char version = 1;
constexpr unsigned char littleEndian = 1;
constexpr size_t fixedBytes = 24;

void putBigEndian(Bytes& bytes, uint32_t number, unsigned size) {
    for (unsigned i = size; i-- != 0;) bytes.push_back(static_cast<unsigned char>(number >> (8 * i)));
}

uint32_t bigEndian(const Bytes& bytes, size_t at, unsigned size) {
    uint32_t number = 0;
    for (unsigned i = 0; i < size; ++i) number = number << 8 | bytes[at + i];
    return number;
}

bool isName(const std::string& text) {
    return !text.empty() && text.find('\0') == std::string::npos;
}

}  // namespace

Packet toPacket(const Captured& signal) {
    const size_t headBytes = fixedBytes + signal.fromName.size() + signal.toName.size();
    Packet packet = {signal.nanoseconds, static_cast<uint32_t>(headBytes + signal.payloadSize()), {}};
    Bytes& bytes = packet.bytes;
    bytes.reserve(headBytes + signal.data.size());
    bytes = {version, signal.isLittleEndian ? littleEndian : static_cast<unsigned char>(0)};
    putBigEndian(bytes, static_cast<uint32_t>(headBytes), 2);
    putBigEndian(bytes, signal.number, 4);
    putBigEndian(bytes, signal.size, 4);
    putBigEndian(bytes, numberOf(signal.from), 4);
    putBigEndian(bytes, numberOf(signal.to), 4);
    putBigEndian(bytes, static_cast<uint32_t>(signal.fromName.size()), 1);
    putBigEndian(bytes, static_cast<uint32_t>(signal.toName.size()), 1);
    putBigEndian(bytes, 0, 2);
    bytes.insert(bytes.end(), signal.fromName.begin(), signal.fromName.end());
    bytes.insert(bytes.end(), signal.toName.begin(), signal.toName.end());
    bytes.insert(bytes.end(), signal.data.begin(), signal.data.end());
    return packet;
}

std::optional<Captured> fromPacket(const Packet& packet) {
    const Bytes& bytes = packet.bytes;
    if (bytes.size() < fixedBytes || bytes[0] != version) return std::nullopt;
    const size_t headBytes = bigEndian(bytes, 2, 2);
    const size_t fromBytes = bytes[20];
    const size_t toBytes = bytes[21];
    if (headBytes > bytes.size() || headBytes < fixedBytes + fromBytes + toBytes) return std::nullopt;
    Captured signal;
    signal.nanoseconds = packet.nanoseconds;
    signal.isLittleEndian = (bytes[1] & littleEndian) != 0;
    signal.number = bigEndian(bytes, 4, 4);
    signal.size = bigEndian(bytes, 8, 4);
    signal.from = linx::Spid{bigEndian(bytes, 12, 4)};
    signal.to = linx::Spid{bigEndian(bytes, 16, 4)};
    const char* const names = reinterpret_cast<const char*>(bytes.data()) + fixedBytes;
    signal.fromName.assign(names, fromBytes);
    signal.toName.assign(names + fromBytes, toBytes);
    signal.data.assign(bytes.begin() + static_cast<std::ptrdiff_t>(headBytes), bytes.end());
    const bool isSignal = signal.size >= sizeof signal.number && signal.size <= linx::maxSignalBytes &&
                          signal.data.size() <= signal.payloadSize();
    return isSignal && isName(signal.fromName) && isName(signal.toName) ? std::optional(signal) : std::nullopt;
}

uint32_t packetBytes(uint32_t snaplen) {
    return static_cast<uint32_t>(fixedBytes) + 2 * linx::maxNameLength + snaplen;
}

}  // namespace tools
