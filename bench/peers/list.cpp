#include "bench/peers/list.h"

#include <unistd.h>

#include "bench/harness/service.h"

namespace bench {

PeerList AllPeers() {
    PeerList list;
    const auto add = [&list](bool there, const char* name, auto... makers) {
        if (there) {
            (list.present.push_back(makers()), ...);
        } else {
            list.absent.push_back(name);
        }
    };
    add(true, linxIpcName, MakeLinxIpc);
    add(true, seqpacketName, MakeSeqpacket);
#ifdef BENCH_ZEROMQ
    add(true, zeromqName, MakeZeromq);
#else
    add(false, zeromqName);
#endif
#ifdef BENCH_NNG
    add(true, nngName, MakeNng);
#else
    add(false, nngName);
#endif
#ifdef BENCH_DBUS
    add(!FindProgram("dbus-daemon").empty(), dbusName, MakeDbus);
#else
    add(false, dbusName);
#endif
    add(access("/proc/sys/fs/mqueue", F_OK) == 0, messageQueueName, MakeMessageQueue);
#ifdef BENCH_ICEORYX
    add(!FindProgram("iox-roudi").empty(), iceoryxName, MakeIceoryx, MakeIceoryxPolling);
#else
    add(false, iceoryxName);
#endif
    add(true, bareMemoryName, MakeSharedMemory);
    return list;
}

}  // namespace bench
