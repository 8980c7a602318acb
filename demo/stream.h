#ifndef LINXIPC_DEMO_STREAM_H
#define LINXIPC_DEMO_STREAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace demo {

/// Bytes of a stream that travel in one signal.
constexpr std::uint32_t chunkBytes = 8192;

/// The signals that a stream of `payload` bytes takes.
constexpr std::uint32_t chunkCount(std::uint32_t payload) {
    return (payload + chunkBytes - 1) / chunkBytes;
}

/// A running sum over bytes in their order: FNV-1a, 64 bits.
class Checksum {
public:
    void add(const char* bytes, std::size_t count);
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xcbf29ce484222325U;
};

/// The bytes of the stream of one round: the same for the same seed, and different from round to round.
std::vector<char> streamContent(std::uint64_t seed, std::uint32_t round, std::uint32_t payload);

/// The sum over those bytes.
std::uint64_t streamChecksum(std::uint64_t seed, std::uint32_t round, std::uint32_t payload);

}  // namespace demo

#endif
