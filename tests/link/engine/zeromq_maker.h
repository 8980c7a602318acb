#ifndef LINXIPC_TESTS_LINK_ENGINE_ZEROMQ_MAKER_H
#define LINXIPC_TESTS_LINK_ENGINE_ZEROMQ_MAKER_H

#include "link/engine/zeromq/zmq_engine.h"

namespace linktest {

using linx::link::KeyPair;
using linx::link::ZmqEngine;
using linx::link::ZmqPeer;

/// As LocalMaker. The first one that waits is given a port, which later ones take over.
class ZeromqMaker {
public:
    std::unique_ptr<ZmqEngine> listener() {
        linx::link::Trouble trouble;
        auto engine = ZmqEngine::open(listenerKeys, address, {{diallerKeys.publicKey, ""}}, trouble);
        if (engine) address = engine->address();
        return engine;
    }
    std::unique_ptr<ZmqEngine> dialler() const { return dialling(diallerKeys, listenerKeys.publicKey); }
    std::unique_ptr<ZmqEngine> stranger() const { return dialling(linx::link::newKeyPair(), listenerKeys.publicKey); }
    std::unique_ptr<ZmqEngine> dialling(const KeyPair& keys, const std::string& peer) const {
        linx::link::Trouble trouble;
        return ZmqEngine::open(keys, "", {{peer, address}}, trouble);
    }

    const KeyPair listenerKeys = linx::link::newKeyPair();
    const KeyPair diallerKeys = linx::link::newKeyPair();
    std::string address = "tcp://127.0.0.1:*";
};

}  // namespace linktest

#endif
