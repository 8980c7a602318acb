#ifndef LINXIPC_IPC_FAILURES_H
#define LINXIPC_IPC_FAILURES_H

#include <cerrno>
#include <cstdint>
#include <string>

#include "log/LogLine.h"

/// Logs why an endpoint cannot serve a call, and returns the result for that.
template <typename... Values>
int Refused(const LogText& line, const Values&... values) {
    LogLine(line, values...);
    return -1;
}

/// Logs the error that LINX has left in `errno`, and returns it.
inline int Failed(const LogText& line) {
    LogLine(line, SystemError{errno});
    return errno;
}

/// Logs that the send of a Notify has failed, with the error in `errno`: why, to whom, how large.
inline void LogFailedSend(unsigned retriesLeft, const std::string& destination, std::uint32_t size) {
    const SystemError error{errno};
    if (retriesLeft > 0) {
        LogLine(logText::notifySendFailed, error, retriesLeft);
        LogLine(logText::notifySendFailedTo, destination);
        LogLine(logText::notifySendFailedSize, size);
    } else {
        LogLine(logText::notifyGivesUp, error);
        LogLine(logText::notifyGivesUpTo, destination);
        LogLine(logText::notifyGivesUpSize, size);
    }
}

#endif
