#ifndef LINXIPC_HOST_MAILBOX_BELL_H
#define LINXIPC_HOST_MAILBOX_BELL_H

#include "host/arena/spid.h"

namespace linx {

/*
 * The bell of an endpoint: a named pipe in the domain's directory, "bell.<spid>". The endpoint holds it open for
 * reading and writing; whoever talks to it or supervises it holds it open for writing and learns from the kernel when
 * the last reader is gone. Functions that open return a descriptor, or -1 with errno.
 */
namespace bell {

/// Makes and opens the bell of the caller's own endpoint. A leftover of the same name is replaced.
int make(int directory, Spid spid, unsigned mode);

/// Opens another endpoint's bell. ENXIO or ENOENT: the endpoint has ended.
int open(int directory, Spid spid);

void remove(int directory, Spid spid);

/// Writes one byte; a full bell is as good. Returns 0, or EPIPE when the endpoint has ended. Raises no SIGPIPE.
int ring(int descriptor);

/// Takes all bytes out of one's own bell.
void drain(int descriptor);

/// Whether the endpoint behind a bell that is open for writing has ended.
bool isDead(int descriptor);

}  // namespace bell
}  // namespace linx

#endif
