#ifndef LINXIPC_HOST_MAILBOX_BELL_H
#define LINXIPC_HOST_MAILBOX_BELL_H

#include "host/arena/spid.h"

namespace linx {

/*
 * The bell of an endpoint: a named pipe in the domain's directory, "bell.<spid>". The endpoint holds it open for
 * reading and writing; whoever talks to it or supervises it holds it open for writing and learns from the kernel when
 * the last reader is gone. What is written are records of four bytes:
 *
 *    31         30        29                0
 *   +----------+---------+-------------------+
 *   | watching |  ended  |  spid; 0: a ring  |
 *   +----------+---------+-------------------+
 *
 * A sender introduces itself before its first signal. The endpoint then holds that one's bell in turn and learns of its
 * end: should the sender die after it has pushed a signal and before it has rung, its end is what wakes. `watching`
 * promises that the sender does the same already; one who only answers a hunt does not. `ended` tells of an end of
 * which the kernel does not, since copies of the bell live on in other processes.
 *
 * Functions that open return a descriptor, or -1 with errno.
 */
namespace bell {

constexpr uint32_t watching = 1u << 31;
constexpr uint32_t ended = 1u << 30;
static_assert((spidMask & (watching | ended)) == 0, "a spid leaves room for the flags");

constexpr uint32_t capacity = 1024;  ///< records that a bell holds

/// Makes and opens the bell of the caller's own endpoint. A leftover of the same name is replaced.
int make(int directory, Spid spid, unsigned mode);

/// Opens another endpoint's bell. ENXIO or ENOENT: the endpoint has ended; EPROTO: what lies there is no bell.
int open(int directory, Spid spid);

void remove(int directory, Spid spid);

/// Rings; a full bell is as good. Returns 0, EPIPE when the endpoint has ended, or another errno value when it could not
/// be rung. Raises no SIGPIPE.
int ring(int descriptor);

/// Writes a record about an endpoint. False when that was not possible: the bell is full or its endpoint has ended.
bool tell(int descriptor, uint32_t record);

/// Takes up to `capacity` records out of one's own bell. Returns how many; so many that there may have been more, or
/// some that did not fit, only if it was full.
uint32_t drain(int descriptor, uint32_t (&records)[capacity]);

/// Whether the endpoint behind a bell that is open for writing has ended.
bool isDead(int descriptor);

}  // namespace bell
}  // namespace linx

#endif
