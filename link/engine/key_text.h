#ifndef LINXIPC_LINK_ENGINE_KEY_TEXT_H
#define LINXIPC_LINK_ENGINE_KEY_TEXT_H

#include <string>

namespace linx::link {

constexpr size_t keyCharacters = 40;

/// Whether it is a key of 32 bytes, public or secret, in the letters of Z85. No key has two such texts.
bool isKeyText(const std::string& text);

}  // namespace linx::link

#endif
