#include "link/engine/zeromq/keys.h"

#include <zmq.h>

#include "link/engine/key_text.h"

namespace linx::link {

bool canEncrypt() {
    return zmq_has("curve") == 1;
}

KeyPair newKeyPair() {
    char publicKey[keyCharacters + 1] = {};
    char secretKey[keyCharacters + 1] = {};
    zmq_curve_keypair(publicKey, secretKey);
    return {publicKey, secretKey};
}

std::optional<KeyPair> keyPairOf(const std::string& secretKey) {
    char publicKey[keyCharacters + 1] = {};
    if (!isKeyText(secretKey) || zmq_curve_public(publicKey, secretKey.c_str()) != 0) return std::nullopt;
    return KeyPair{publicKey, secretKey};
}

}  // namespace linx::link
