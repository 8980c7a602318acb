#ifndef LINXIPC_IPC_LOGLINE_H
#define LINXIPC_IPC_LOGLINE_H

#include <cerrno>
#include <cstring>
#include <ostream>

#include "ipc/LogLevel.h"
#include "platform/LogClient.h"

/// A piece of a line: the system's text for an errno value.
struct SystemError {
    int number;
};

inline std::ostream& operator<<(std::ostream& stream, SystemError error) {
    const char* text = std::strerror(error.number);
    if (text == nullptr) {
        stream.setstate(std::ios_base::badbit);
        return stream;
    }
    return stream << text;
}

/// Writes the line `line` of `source`, made of `pieces`; does nothing when the bit of `level` is clear. Cold: keeps
/// the making of lines out of the paths on which messages travel. When memory runs out the line ends early, or the
/// platform throws `std::bad_alloc` before it has begun: no caller has anything half done or unguarded then.
template <typename... Pieces>
[[gnu::cold]] void LogLine(LogLevel level, const char* source, int line, const Pieces&... pieces) {
    LogClient* client = LogClient::Instance();
    if ((client->Level() & level) == 0) return;
    SysLogMsg message;
    std::ostream& stream = message.Log(level, client->ProcessName());
    const int callersErrno = errno;  // a piece that there is no memory for would change it
    stream << source << ':' << line << ' ';
    (stream << ... << pieces);
    errno = callersErrno;
}

#endif
