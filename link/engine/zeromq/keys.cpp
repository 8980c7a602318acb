#include "link/engine/zeromq/keys.h"

#include <zmq.h>

namespace linx::link {
namespace {

constexpr size_t keyCharacters = 40;

}  // namespace

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
    if (secretKey.size() != keyCharacters || zmq_curve_public(publicKey, secretKey.c_str()) != 0) return std::nullopt;
    return KeyPair{publicKey, secretKey};
}

}  // namespace linx::link
