// SPDX-License-Identifier: MIT
#ifndef LINXIPC_LOG_LOGLEVEL_H
#define LINXIPC_LOG_LOGLEVEL_H

/// The bits of the mask that says what is logged. Each line has one of them as its level.
enum LogLevel : unsigned {
    e_LogLookup = 1,       ///< a look-up of a server that the directory does not have
    e_LogError = 2,        ///< a call that failed
    e_LogSendFailure = 4,  ///< a failed send: of a `Notify`, which will try again, or of a `Relay`
    e_LogEvent = 16,       ///< a process died; a send succeeded after retries
    e_LogHunt = 32,        ///< every search for an endpoint
    e_LogRequest = 128,    ///< every message that is not the one an `AsyncRequest` waits for
    e_LogShutdown = 512    ///< a request to shut down
};

#endif
