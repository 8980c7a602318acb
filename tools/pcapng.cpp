#include "tools/pcapng.h"

#include <cerrno>
#include <cstring>

#include "tools/failure.h"
#include "tools/file.h"
#include "tools/text.h"

namespace tools {
namespace {

enum BlockType : uint32_t {
    sectionHeader = 0x0a0d0d0a,
    interfaceDescription = 1,
    interfaceStatistics = 5,
    enhancedPacket = 6
};
constexpr uint32_t byteOrderMagic = 0x1a2b3c4d;
constexpr uint16_t user0 = 147;  // a link type that is left to its users
constexpr uint64_t nanosecondsPerSecond = 1000000000;

enum Option : uint16_t { endOfOptions = 0, ifName = 2, ifTsresol = 9, shbUserappl = 4, isbIfrecv = 4, isbIfdrop = 5 };

constexpr uint32_t frameBytes = 12;  // of any block: type, length, and the length again
constexpr uint32_t packetHeadBytes = 20;
constexpr uint32_t largestBlock = 1u << 24;

constexpr size_t padded(size_t bytes) {
    return (bytes + 3) & ~size_t{3};
}

/// The body of a block as it grows.
class Body {
public:
    template <class Number>
    Body& add(Number number) {
        return append(&number, sizeof number);
    }
    Body& addTime(uint64_t nanoseconds) {
        return add(static_cast<uint32_t>(nanoseconds >> 32)).add(static_cast<uint32_t>(nanoseconds));
    }
    Body& addPadded(const void* data, size_t size) {
        append(data, size);
        bytes_.resize(padded(bytes_.size()));
        return *this;
    }
    Body& addOption(Option option, const void* value, size_t size) {
        return add(uint16_t{option}).add(static_cast<uint16_t>(size)).addPadded(value, size);
    }
    Body& addOption(Option option, const std::string& text) { return addOption(option, text.data(), text.size()); }
    Body& endOptions() { return addOption(endOfOptions, nullptr, 0); }

    void write(std::FILE* file, BlockType type) const {
        const uint32_t head[] = {type, static_cast<uint32_t>(bytes_.size()) + frameBytes};
        std::fwrite(head, sizeof head, 1, file);
        std::fwrite(bytes_.data(), 1, bytes_.size(), file);
        std::fwrite(&head[1], sizeof head[1], 1, file);
    }

private:
    Body& append(const void* data, size_t size) {
        const auto* const bytes = static_cast<const unsigned char*>(data);
        if (size != 0) bytes_.insert(bytes_.end(), bytes, bytes + size);
        return *this;
    }

    Bytes bytes_;
};

}  // namespace

PcapngWriter::PcapngWriter(std::FILE* file, const std::string& interface, uint32_t snaplen) : file_(file) {
    constexpr uint16_t major = 1;
    constexpr uint16_t minor = 0;
    constexpr uint64_t unknownLength = ~uint64_t{0};
    Body()
        .add(byteOrderMagic)
        .add(major)
        .add(minor)
        .add(unknownLength)
        .addOption(shbUserappl, "linx " LINXIPC_VERSION)
        .endOptions()
        .write(file_, sectionHeader);
    constexpr uint16_t reserved = 0;
    constexpr unsigned char nanoseconds = 9;  // ten to minus that many
    Body()
        .add(user0)
        .add(reserved)
        .add(snaplen)
        .addOption(ifName, interface)
        .addOption(ifTsresol, &nanoseconds, sizeof nanoseconds)
        .endOptions()
        .write(file_, interfaceDescription);
}

void PcapngWriter::write(const Packet& packet) {
    constexpr uint32_t interface = 0;
    Body()
        .add(interface)
        .addTime(packet.nanoseconds)
        .add(static_cast<uint32_t>(packet.bytes.size()))
        .add(packet.originalSize)
        .addPadded(packet.bytes.data(), packet.bytes.size())
        .write(file_, enhancedPacket);
}

void PcapngWriter::finish(const Tally& tally, uint64_t nanoseconds) {
    constexpr uint32_t interface = 0;
    Body()
        .add(interface)
        .addTime(nanoseconds)
        .addOption(isbIfrecv, &tally.captured, sizeof tally.captured)
        .addOption(isbIfdrop, &tally.lost, sizeof tally.lost)
        .endOptions()
        .write(file_, interfaceStatistics);
}

std::optional<Packet> PcapngReader::next() {
    while (const std::optional<Block> block = readBlock()) {
        if (block->type == interfaceDescription) addInterface(block->body);
        if (block->type != enhancedPacket) continue;
        std::optional<Packet> packet = packetOf(block->body);
        if (packet) return packet;
    }
    return std::nullopt;
}

std::optional<PcapngReader::Block> PcapngReader::readBlock() {
    blockStart_ = offset_;
    Bytes head(8);
    const bool isThere = readBytes(head.data(), head.size());
    Block block = {read32(head, 0), {}};  // that of a section header reads the same in both orders
    if (blockStart_ == 0 && block.type != sectionHeader) fail("it is no capture in the format pcapng");
    if (!isThere) return std::nullopt;
    Bytes magic;
    if (block.type == sectionHeader) {
        magic.resize(sizeof byteOrderMagic);
        if (!readBytes(magic.data(), magic.size())) fail("it ends in a block");
        uint32_t order = 0;
        std::memcpy(&order, magic.data(), sizeof order);
        if (order != byteOrderMagic && order != __builtin_bswap32(byteOrderMagic))
            fail("a section has no byte order");
        isSwapped_ = order != byteOrderMagic;
        interfaces_.clear();
    }
    const uint32_t length = read32(head, 4);
    if (length < frameBytes + magic.size() || length % 4 != 0 || length > largestBlock) {
        fail("a block has an impossible length");
    }
    block.body = std::move(magic);
    const size_t before = block.body.size();
    block.body.resize(length - frameBytes);
    Bytes again(sizeof length);
    const size_t left = block.body.size() - before;
    if ((left != 0 && !readBytes(block.body.data() + before, left)) || !readBytes(again.data(), again.size())) {
        fail("it ends in a block");
    }
    if (read32(again, 0) != length) fail("a block has two lengths");
    return block;
}

bool PcapngReader::readBytes(void* to, size_t bytes) {
    const size_t got = std::fread(to, 1, bytes, file_);
    if (std::ferror(file_) != 0) failToRead(name_, errno);
    offset_ += got;
    if (got != 0 && got != bytes) fail("it ends in a block");
    return got == bytes;
}

void PcapngReader::addInterface(const Bytes& body) {
    constexpr size_t optionsStart = 8;
    if (body.size() < optionsStart) fail("an interface is too short");
    interfaces_.push_back({read16(body, 0), unitOf(Bytes(body.begin() + optionsStart, body.end()))});
}

uint64_t PcapngReader::unitOf(const Bytes& options) const {
    unsigned digits = 6;
    for (size_t at = 0; at + 4 <= options.size();) {
        const uint16_t option = read16(options, at);
        const size_t size = read16(options, at + 2);
        if (option == endOfOptions) break;
        if (at + 4 + size > options.size()) fail("an option is longer than its block");
        if (option == ifTsresol && size == 1) digits = options[at + 4];
        at += 4 + padded(size);
    }
    if (digits > 9) fail("its times are in a unit that is not understood");
    uint64_t unit = nanosecondsPerSecond;
    for (unsigned i = 0; i < digits; ++i) unit /= 10;
    return unit;
}

std::optional<Packet> PcapngReader::packetOf(const Bytes& body) const {
    if (body.size() < packetHeadBytes) fail("a packet is too short");
    const uint32_t interface = read32(body, 0);
    if (interface >= interfaces_.size()) fail("a packet is of no interface");
    if (interfaces_[interface].linkType != user0) return std::nullopt;
    const uint64_t time = uint64_t{read32(body, 4)} << 32 | read32(body, 8);
    const uint32_t captured = read32(body, 12);
    if (captured > body.size() - packetHeadBytes) fail("a packet is longer than its block");
    const auto start = body.begin() + packetHeadBytes;
    return Packet{time * interfaces_[interface].unit, read32(body, 16), Bytes(start, start + captured)};
}

uint16_t PcapngReader::read16(const Bytes& body, size_t at) const {
    uint16_t number = 0;
    std::memcpy(&number, body.data() + at, sizeof number);
    return isSwapped_ ? __builtin_bswap16(number) : number;
}

uint32_t PcapngReader::read32(const Bytes& body, size_t at) const {
    uint32_t number = 0;
    std::memcpy(&number, body.data() + at, sizeof number);
    return isSwapped_ ? __builtin_bswap32(number) : number;
}

void PcapngReader::fail(const std::string& what) const {
    throw Failure(refused,
                  printable(name_) + " cannot be read on from byte " + std::to_string(blockStart_) + ": " + what);
}

}  // namespace tools
