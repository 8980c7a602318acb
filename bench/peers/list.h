#ifndef LINXIPC_BENCH_PEERS_LIST_H
#define LINXIPC_BENCH_PEERS_LIST_H

#include <memory>
#include <string>
#include <vector>

#include "bench/harness/check.h"
#include "bench/peers/peer.h"

namespace bench {

std::unique_ptr<Peer> makeLinxIpc();
std::unique_ptr<Peer> makeSeqpacket();
std::unique_ptr<Peer> makeZeromq();
std::unique_ptr<Peer> makeNng();
std::unique_ptr<Peer> makeDbus();
std::unique_ptr<Peer> makeMessageQueue();
std::unique_ptr<Peer> makeIceoryx();
std::unique_ptr<Peer> makeIceoryxPolling();
std::unique_ptr<Peer> makeSharedMemory();

/// The peers that were built in, LinxIpc first, and the names of those that were not.
struct PeerList {
    std::vector<std::unique_ptr<Peer>> present;
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
