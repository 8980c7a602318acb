#ifndef LINXIPC_HOST_RECORD_PROBES_H
#define LINXIPC_HOST_RECORD_PROBES_H

#include <cstdint>

#include "host/arena/spid.h"

#if __has_include(<sys/sdt.h>)
#include <sys/sdt.h>
#define LINXIPC_PROBES 1
#endif

namespace linx {

/// Places at which bpftrace, perf and the like can stop by while a process runs: one instruction that does nothing
/// each, and none where the library was built without <sys/sdt.h>. Their provider is `linx`.
namespace probes {

#ifdef LINXIPC_PROBES
// By reference: an argument that lies in memory is named as such, not fetched.
[[gnu::always_inline]] inline void send(const Spid& from, Spid to, const uint32_t& number, uint32_t size) {
    DTRACE_PROBE4(linx, send, static_cast<uint32_t>(from), static_cast<uint32_t>(to), number, size);
}
[[gnu::always_inline]] inline void receive(const Spid& by, const uint32_t& number, uint32_t size) {
    DTRACE_PROBE3(linx, receive, static_cast<uint32_t>(by), number, size);
}
inline void sleep(Spid by, uint32_t number) {
    DTRACE_PROBE2(linx, sleep, static_cast<uint32_t>(by), number);
}
inline void ring(Spid by, Spid whom) {
    DTRACE_PROBE2(linx, ring, static_cast<uint32_t>(by), static_cast<uint32_t>(whom));
}
inline void reap(Spid dead) {
    DTRACE_PROBE1(linx, reap, static_cast<uint32_t>(dead));
}
#else
inline void send(Spid, Spid, uint32_t, uint32_t) {}
inline void receive(Spid, uint32_t, uint32_t) {}
inline void sleep(Spid, uint32_t) {}
inline void ring(Spid, Spid) {}
inline void reap(Spid) {}
#endif

}  // namespace probes
}  // namespace linx

#endif
