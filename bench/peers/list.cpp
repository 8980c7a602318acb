#include "bench/peers/list.h"

namespace bench {

PeerList AllPeers() {
    PeerList list;
    list.present.push_back(MakeLinxIpc());
    list.present.push_back(MakeSeqpacket());
#ifdef BENCH_ZEROMQ
    list.present.push_back(MakeZeromq());
#else
    list.absent.push_back("ZeroMQ");
#endif
#ifdef BENCH_NNG
    list.present.push_back(MakeNng());
#else
    list.absent.push_back("nng");
#endif
#ifdef BENCH_DBUS
    list.present.push_back(MakeDbus());
#else
    list.absent.push_back("D-Bus");
#endif
#ifdef BENCH_MESSAGE_QUEUE
    list.present.push_back(MakeMessageQueue());
#else
    list.absent.push_back("POSIX queue");
#endif
#ifdef BENCH_ICEORYX
    list.present.push_back(MakeIceoryx());
    list.present.push_back(MakeIceoryxPolling());
#else
    list.absent.push_back("iceoryx");
#endif
    list.present.push_back(MakeSharedMemory());
    return list;
}

}  // namespace bench
