#ifndef LINXIPC_HOST_MAILBOX_BELL_H
#define LINXIPC_HOST_MAILBOX_BELL_H

#include <vector>

#include "host/arena/spid.h"

namespace linx {

/*
 * The bell of an endpoint: a named pipe in the domain's directory, "bell.<spid>". The endpoint holds it open for
 * reading and writing; whoever talks to it or supervises it holds it open for writing and learns from the kernel when
 * the last reader is gone. What is written are records of four bytes: 0 to ring, or the spid of a sender that
 * introduces itself. The endpoint then holds that one's bell in turn and learns of its end: should the sender die
 * after it has pushed a signal and before it has rung, its end is what wakes.
 *
 * Functions that open return a descriptor, or -1 with errno.
 */
namespace bell {

/// Makes and opens the bell of the caller's own endpoint. A leftover of the same name is replaced.
int make(int directory, Spid spid, unsigned mode);

/// Opens another endpoint's bell. ENXIO or ENOENT: the endpoint has ended; EPROTO: what lies there is no bell.
int open(int directory, Spid spid);

void remove(int directory, Spid spid);

/// Rings; a full bell is as good. Returns 0, or EPIPE when the endpoint has ended. Raises no SIGPIPE.
int ring(int descriptor);

/// Introduces the sender `self`. False when that was not possible: the bell is full or the endpoint has ended.
bool introduce(int descriptor, Spid self);

/// Takes everything out of one's own bell; who introduced itself is appended to `introduced`, if that is given and
/// there is memory.
void drain(int descriptor, std::vector<Spid>* introduced = nullptr);

/// Whether the endpoint behind a bell that is open for writing has ended.
bool isDead(int descriptor);

}  // namespace bell
}  // namespace linx

#endif
