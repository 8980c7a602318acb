#ifndef LINXIPC_IPC_LOGLINE_H
#define LINXIPC_IPC_LOGLINE_H

#include <cstring>
#include <ostream>

#include "platform/LogClient.h"

/// The bits of the level mask.
enum LogLevel : unsigned {
    e_LogLookup = 1,
    e_LogError = 2,
    e_LogSendFailure = 4,
    e_LogEvent = 16,
    e_LogHunt = 32,
    e_LogRequest = 128,
    e_LogShutdown = 512
};

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
/// the making of lines out of the paths on which messages travel.
template <typename... Pieces>
[[gnu::cold]] void LogLine(LogLevel level, const char* source, int line, const Pieces&... pieces) {
    LogClient* client = LogClient::Instance();
    if ((client->Level() & level) == 0) return;
    SysLogMsg message;
    std::ostream& stream = message.Log(level, client->ProcessName());
    stream << source << ':' << line << ' ';
    (stream << ... << pieces);
}

#endif
