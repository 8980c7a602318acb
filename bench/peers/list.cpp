#include "bench/peers/list.h"

namespace bench {

namespace {

struct Entry {
    const char* name;
    std::vector<const Peer*> peers;
};

}  // namespace

PeerList allPeers() {
    const Entry entries[] = {
        {linxIpcName, {&linxIpc}},
        {seqpacketName, {&seqpacket}},
        {zeromqName, {&zeromq}},
        {nngName, {&nng}},
        {dbusName, {&dbus}},
        {messageQueueName, {&messageQueue}},
        {iceoryxName, {&iceoryx, &iceoryxPolling}},
        {bareMemoryName, {&bareMemory}},
    };
    PeerList list;
    for (const auto& [name, peers] : entries) {
        if (peers.front() != nullptr && peers.front()->runsHere()) {
            list.present.insert(list.present.end(), peers.begin(), peers.end());
        } else {
            list.absent.push_back(name);
        }
    }
    return list;
}

}  // namespace bench
