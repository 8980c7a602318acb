#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_WORDS_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_WORDS_H

#include <cstdint>

#include "link/session/frame.h"

namespace linx::link {

/*
 * Messages of a single byte, which no frame is, between the engines of two nodes. A socket that listens for all peers
 * does not tell which of their connections are new or gone, nor can it close one:
 *
 *     opens   from the one that dialled, first of all
 *     closes  from either: I have sent everything, and hear no more
 */
constexpr uint8_t opens = 1;
constexpr uint8_t closes = 2;
static_assert(headerBytes > 1);

/// Frames that may wait in each direction of a connection. More than a window in full frames; where it is less than
/// what a session would send, the session waits.
constexpr int mostWaiting = 1024;
/// Larger than any frame under its encryption. Whoever sends more than that is cut off.
constexpr int largestMessage = 64 * 1024;
constexpr int greetingMilliseconds = 2000;
/// How long what was taken may still leave when a connection is closed from here.
constexpr int lingerMilliseconds = 500;

}  // namespace linx::link

#endif
