#ifndef LINXIPC_LINK_PROGRAM_SETUP_H
#define LINXIPC_LINK_PROGRAM_SETUP_H

#include "link/configuration/configuration.h"
#include "link/engine/zeromq/zmq_engine.h"

namespace linx::link {

/// A configuration that was found right, and the keys that it leads to.
struct Setup {
    Configuration configuration;
    KeyPair keys;
};

/// Nothing when something is wrong, all of which is written to standard error: "FILE:LINE: what, and what is right".
std::optional<Setup> readSetup(const std::string& path);

/// The engine of this configuration, with its links as peers in their order.
std::unique_ptr<ZmqEngine> openEngine(const Setup& setup, Trouble& trouble);

}  // namespace linx::link

#endif
