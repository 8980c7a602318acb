#ifndef LINXIPC_BENCH_PEERS_LIST_H
#define LINXIPC_BENCH_PEERS_LIST_H

#include <string>
#include <vector>

#include "bench/harness/check.h"
#include "bench/peers/peer.h"

namespace bench {

// Those that need a library are not there where the machine lacks it: their address is null.
extern const Peer linxIpc, seqpacket, messageQueue, bareMemory;
[[gnu::weak]] extern const Peer zeromq, nng, dbus, iceoryx, iceoryxPolling;

/// The peers that can be measured here, LinxIpc first, and the names of the others.
struct PeerList {
    std::vector<const Peer*> present;
    std::vector<std::string> absent;
};
PeerList allPeers();

// What the results call them.
constexpr const char* linxIpcName = "LinxIpc";
constexpr const char* seqpacketName = "SEQPACKET";
constexpr const char* zeromqName = "ZeroMQ";
constexpr const char* nngName = "nng";
constexpr const char* dbusName = "D-Bus";
constexpr const char* messageQueueName = "POSIX queue";
constexpr const char* iceoryxName = "iceoryx";
constexpr const char* iceoryxPollingName = "iceoryx, polling";
constexpr const char* bareMemoryName = "bare memory";

}  // namespace bench

#endif
