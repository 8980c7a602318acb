#include "demo/stream.h"

#include <random>

namespace demo {

void Checksum::add(const char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        value_ ^= static_cast<unsigned char>(bytes[i]);
        value_ *= 0x100000001b3U;
    }
}

std::vector<char> streamContent(std::uint64_t seed, std::uint32_t round, std::uint32_t payload) {
    std::mt19937_64 numbers(seed + round);
    std::vector<char> content(payload);
    for (char& byte : content) byte = static_cast<char>(numbers() & 0xffU);
    return content;
}

std::uint64_t streamChecksum(std::uint64_t seed, std::uint32_t round, std::uint32_t payload) {
    const std::vector<char> content = streamContent(seed, round, payload);
    Checksum sum;
    sum.add(content.data(), content.size());
    return sum.value();
}

}  // namespace demo
