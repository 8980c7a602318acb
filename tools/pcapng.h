#ifndef LINXIPC_TOOLS_PCAPNG_H
#define LINXIPC_TOOLS_PCAPNG_H

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tools/payload.h"

namespace tools {

/// A packet of a capture.
struct Packet {
    uint64_t nanoseconds = 0;   ///< since 1970
    uint32_t originalSize = 0;  ///< what `bytes` would be if nothing had been cut off
    Bytes bytes;
};

/// What a capture came to.
struct Tally {
    uint64_t captured = 0;
    uint64_t lost = 0;
};

/// Writes a capture: one section with one interface, in this machine's byte order. Whether all that was written, the
/// stream knows (ferror, fflush).
class PcapngWriter {
public:
    /// Begins it. `interface` says what is captured, and from each packet at most `snaplen` bytes.
    PcapngWriter(std::FILE* file, const std::string& interface, uint32_t snaplen);

    void write(const Packet& packet);

    /// Ends it.
    void finish(const Tally& tally, uint64_t nanoseconds);

private:
    std::FILE* file_;
};

/// Reads a capture of either byte order, whoever has written it. What is in it that is not of this link type is left
/// out. Every length is checked.
class PcapngReader {
public:
    /// The stream stays the caller's; `name` is what it is called in failures.
    PcapngReader(std::FILE* file, std::string name) : file_(file), name_(std::move(name)) {}

    /// None at the end. Throws a Failure that says what is wrong where.
    std::optional<Packet> next();

private:
    struct Interface {
        uint16_t linkType;
        uint64_t unit;  ///< nanoseconds
    };
    struct Block {
        uint32_t type;
        Bytes body;
    };

    std::optional<Block> readBlock();
    bool readBytes(void* to, size_t bytes);
    void addInterface(const Bytes& body);
    uint64_t unitOf(const Bytes& options) const;
    std::optional<Packet> packetOf(const Bytes& body) const;
    uint16_t read16(const Bytes& body, size_t at) const;
    uint32_t read32(const Bytes& body, size_t at) const;
    [[noreturn]] void fail(const std::string& what) const;

    std::FILE* file_;
    std::string name_;
    uint64_t blockStart_ = 0;  ///< where the block is that is being read
    uint64_t offset_ = 0;
    bool isSwapped_ = false;
    std::vector<Interface> interfaces_;
};

}  // namespace tools

#endif
