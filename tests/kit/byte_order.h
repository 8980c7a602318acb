#ifndef LINXIPC_TESTS_KIT_BYTE_ORDER_H
#define LINXIPC_TESTS_KIT_BYTE_ORDER_H

#include <cstddef>
#include <string>

namespace linxtest {

/// The bytes from `data` on as text: "00 00 05 01".
inline std::string bytesOf(const void* data, std::size_t size) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        const unsigned char byte = static_cast<const unsigned char*>(data)[i];
        if (i != 0) text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

inline std::string bytesOf(const std::string& bytes) {
    return bytesOf(bytes.data(), bytes.size());
}

/// Of what machines of the two byte orders write, that which this one does.
inline std::string written(const char* bigEndian, const char* littleEndian) {
    return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? bigEndian : littleEndian;
}

/// Bytes that such a text tells.
inline std::string bytesFrom(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        bytes += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

}  // namespace linxtest

#endif
