// SPDX-License-Identifier: MIT
#ifndef LINXIPC_LOG_LOGLEVEL_H
#define LINXIPC_LOG_LOGLEVEL_H

/// The bits of the mask that says what is logged. Each line has one of them.
enum LogLevel : unsigned {
    e_LogLookup = 1,       ///< a server that the directory does not know
    e_LogError = 2,        ///< a call that failed
    e_LogSendFailure = 4,  ///< a failed send: of a `Notify`, which repeats it, or of a `Relay`
    e_LogEvent = 16,       ///< a process died; a send succeeded at last
    e_LogHunt = 32,        ///< every search for an endpoint
    e_LogRequest = 128,    ///< every message that an `AsyncRequest` did not wait for
    e_LogShutdown = 512    ///< a request to shut down
};

#endif
