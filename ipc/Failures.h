#ifndef LINXIPC_IPC_FAILURES_H
#define LINXIPC_IPC_FAILURES_H

#include <cerrno>
#include <cstdint>
#include <string>

#include "log/LogLine.h"

/// Logs why an endpoint cannot serve a call, and returns the result for that.
template <typename... Values>
int refused(const LogText& line, const Values&... values) {
    logLine(line, values...);
    return -1;
}

/// Logs the error that LINX has left in `errno`, and returns it.
inline int failed(const LogText& line) {
    logLine(line, SystemError{errno});
    return errno;
}

/// Logs that the send of a Notify has failed, with the error in `errno`: why, to whom, how large.
inline void logFailedSend(unsigned retriesLeft, const std::string& destination, std::uint32_t size) {
    const SystemError error{errno};
    if (retriesLeft > 0) {
        logLine(logText::notifySendFailed, error, retriesLeft);
        logLine(logText::notifySendFailedTo, destination);
        logLine(logText::notifySendFailedSize, size);
    } else {
        logLine(logText::notifyGivesUp, error);
        logLine(logText::notifyGivesUpTo, destination);
        logLine(logText::notifyGivesUpSize, size);
    }
}

#endif
