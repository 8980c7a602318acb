#ifndef LINXIPC_LINK_SESSION_BYTES_H
#define LINXIPC_LINK_SESSION_BYTES_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace linx::link {

using Bytes = std::vector<uint8_t>;

/// Appends numbers, the highest byte first.
class Writer {
public:
    explicit Writer(Bytes& to) : to_(to) {}

    void u8(uint8_t value) { to_.push_back(value); }
    void u16(uint16_t value) { number(value, 2); }
    void u32(uint32_t value) { number(value, 4); }
    void u64(uint64_t value) { number(value, 8); }
    template <class Container>
    void raw(const Container& bytes) {
        to_.insert(to_.end(), bytes.begin(), bytes.end());
    }
    void raw(const uint8_t* from, size_t size) { to_.insert(to_.end(), from, from + size); }

private:
    void number(uint64_t value, unsigned bytes) {
        for (unsigned i = bytes; i-- != 0;) to_.push_back(static_cast<uint8_t>(value >> 8 * i));
    }

    Bytes& to_;
};

/// Reads what a Writer has written, and never further than the bytes that it was given. What is not there reads as 0,
/// and so does everything after it; failed() tells.
class Reader {
public:
    Reader(const uint8_t* data, size_t size) : at_(data), left_(size) {}

    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u32() { return static_cast<uint32_t>(number(4)); }
    uint64_t u64() { return number(8); }

    /// The next `size` bytes; null when there are not so many.
    const uint8_t* raw(size_t size) {
        if (failed_ || size > left_) {
            failed_ = true;
            return nullptr;
        }
        const uint8_t* const found = at_;
        at_ += size;
        left_ -= size;
        return found;
    }
    size_t left() const { return failed_ ? 0 : left_; }
    bool failed() const { return failed_; }
    bool isAtEnd() const { return !failed_ && left_ == 0; }

private:
    uint64_t number(size_t bytes) {
        const uint8_t* const from = raw(bytes);
        uint64_t value = 0;
        for (size_t i = 0; from != nullptr && i < bytes; ++i) value = value << 8 | from[i];
        return value;
    }

    const uint8_t* at_;
    size_t left_;
    bool failed_ = false;
};

}  // namespace linx::link

#endif
