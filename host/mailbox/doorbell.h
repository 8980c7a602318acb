#ifndef LINXIPC_HOST_MAILBOX_DOORBELL_H
#define LINXIPC_HOST_MAILBOX_DOORBELL_H

#include "host/arena/spid.h"

namespace linx {

/*
 * The doorbell of an endpoint: a named pipe in the domain's directory, "bell.<spid>". The endpoint holds it open for
 * reading and writing; whoever talks to it or supervises it holds it open for writing and learns from the kernel when
 * the last reader is gone. What is written are records of four bytes:
 *
 *   0      a ring
 *   spid   an introduction: that endpoint is about to send its first signal. The reader opens its doorbell in turn
 *          and learns of its end, which wakes the reader if the sender dies after a push and before the ring
 *   ended  an endpoint has ended without the kernel reporting it, since other processes hold copies of its doorbell
 *
 * Functions that open return a descriptor, or -1 with errno.
 */
namespace doorbell {

constexpr uint32_t ended = 1u << 31;
static_assert((spidMask & ended) == 0, "no spid is taken for it");

constexpr uint32_t capacity = 1024;  ///< records that a doorbell holds

/// Makes and opens the doorbell of the caller's own endpoint. A leftover of the same name is replaced; a failure may
/// leave one.
int make(int directory, Spid spid, unsigned mode);

/// Opens another endpoint's doorbell. ENXIO or ENOENT: the endpoint has ended; EPROTO: what lies there is no
/// doorbell.
int open(int directory, Spid spid);

/// The spid whose doorbell a file of this name is; none when it is another file.
Spid spidOfFile(const char* name);

/// False when there may still be one.
bool remove(int directory, Spid spid);

/// Rings; full counts as rung, too. Returns 0, EPIPE when the endpoint has ended, or another errno value when it
/// could not be rung. Raises no SIGPIPE.
int ring(int descriptor);

/// Writes a record other than a ring. False when that was not possible: the doorbell is full or its endpoint has
/// ended.
bool tell(int descriptor, uint32_t record);

/// Reads up to `capacity` records from one's own doorbell. Returns how many; `capacity` only if it was full, so that
/// there may be more, or some did not fit.
uint32_t drain(int descriptor, uint32_t (&records)[capacity]);

/// Whether the endpoint behind a doorbell that is open for writing has ended.
bool isDead(int descriptor);

}  // namespace doorbell
}  // namespace linx

#endif
