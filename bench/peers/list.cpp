#include "bench/peers/list.h"

#include <unistd.h>

#include "bench/harness/service.h"

namespace bench {

PeerList allPeers() {
    PeerList list;
    const auto add = [&list](bool there, const char* name, auto... makers) {
        if (there) {
            (list.present.push_back(makers()), ...);
        } else {
            list.absent.push_back(name);
        }
    };
    add(true, linxIpcName, makeLinxIpc);
    add(true, seqpacketName, makeSeqpacket);
#ifdef BENCH_ZEROMQ
    add(true, zeromqName, makeZeromq);
#else
    add(false, zeromqName);
#endif
#ifdef BENCH_NNG
    add(true, nngName, makeNng);
#else
    add(false, nngName);
#endif
#ifdef BENCH_DBUS
    add(!findProgram("dbus-daemon").empty(), dbusName, makeDbus);
#else
    add(false, dbusName);
#endif
    add(access("/proc/sys/fs/mqueue", F_OK) == 0, messageQueueName, makeMessageQueue);
#ifdef BENCH_ICEORYX
    add(!findProgram("iox-roudi").empty(), iceoryxName, makeIceoryx, makeIceoryxPolling);
#else
    add(false, iceoryxName);
#endif
    add(true, bareMemoryName, makeSharedMemory);
    return list;
}

}  // namespace bench
