#ifndef LINXIPC_TESTS_FUZZ_INPUT_H
#define LINXIPC_TESTS_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>

namespace fuzz {

/// The bytes that a fuzzer gives, as a source of choices. Zeros follow the last one.
class Input {
public:
    Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }
    uint32_t byte() { return empty() ? 0 : *at_++; }
    uint32_t half() { return byte() << 8 | byte(); }
    uint32_t word() { return half() << 16 | half(); }

    /// A number below `bound`, of as few bytes as it takes.
    uint32_t below(uint32_t bound) {
        if (bound <= 1) return 0;
        return (bound <= 1u << 8 ? byte() : bound <= 1u << 16 ? half() : word()) % bound;
    }

private:
    const uint8_t* at_;
    const uint8_t* const end_;
};

}  // namespace fuzz

#endif
