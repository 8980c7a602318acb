#include "link/engine/key_text.h"

#include <cstdint>

namespace linx::link {

bool isKeyText(const std::string& text) {
    static const std::string letters =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ.-:+=^!/*?&<>()[]{}@%$#";
    constexpr size_t lettersInGroup = 5;  // which are four bytes
    if (text.size() != keyCharacters) return false;
    uint64_t group = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const size_t digit = letters.find(text[i]);
        if (digit == std::string::npos) return false;
        group = (i % lettersInGroup == 0 ? 0 : group) * letters.size() + digit;
        if (group > UINT32_MAX) return false;
    }
    return true;
}

}  // namespace linx::link
