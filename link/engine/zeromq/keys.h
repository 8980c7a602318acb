#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_KEYS_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_KEYS_H

#include <optional>
#include <string>

namespace linx::link {

/// Of 40 characters each, as they are written in configurations.
struct KeyPair {
    std::string publicKey;
    std::string secretKey;
};

/// Whether the ZeroMQ of this machine can encrypt. There is no other way to talk.
bool canEncrypt();
constexpr const char* noEncryption = "the ZeroMQ library of this machine was built without encryption (CURVE)";
KeyPair newKeyPair();
/// The pair of a secret key; nothing when it is none.
std::optional<KeyPair> keyPairOf(const std::string& secretKey);

}  // namespace linx::link

#endif
