#ifndef LINXIPC_LOG_LOGLINE_H
#define LINXIPC_LOG_LOGLINE_H

#include <cerrno>
#include <ostream>

#include "log/LogText.h"
#include "platform/LogClient.h"

/// A value of a line: the system's text for an errno value. Where the system has none, the stream fails, and the line
/// ends there.
struct SystemError {
    int number;
};
std::ostream& operator<<(std::ostream& stream, SystemError error);

/// Writes `text` up to its first {}, which it must have, and returns the rest behind that.
const char* writeUpToValue(std::ostream& stream, const char* text);

/// Writes the line `line` with `values` in it; does nothing when the bit of its level is clear. When memory runs out
/// the line ends early, or the platform throws `std::bad_alloc` before it has begun: no caller has anything half done
/// or unguarded then. Leaves `errno` as it is unless it throws.
template <typename... Values>
void logLine(const LogText& line, const Values&... values) {
    LogClient* client = LogClient::Instance();
    if ((client->Level() & line.level) == 0) return;
    SysLogMsg message;
    std::ostream& stream = message.Log(line.level, client->ProcessName());
    const int callersErrno = errno;  // a value that there is no memory for would change it
    stream << line.source << ':' << line.number << ' ';
    const char* rest = line.text;
    ((rest = writeUpToValue(stream, rest), stream << values), ...);
    stream << rest;
    errno = callersErrno;
}

#endif
