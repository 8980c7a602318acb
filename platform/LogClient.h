// SPDX-License-Identifier: MIT
#ifndef LINXIPC_PLATFORM_LOGCLIENT_H
#define LINXIPC_PLATFORM_LOGCLIENT_H

#include <memory>
#include <ostream>
#include <string>

#include "platform/export.h"

/// The process's access to the device's log. Any thread may use it.
class LINXIPC_API LogClient {
public:
    /// The one log client of the process; never null. The first use throws `std::bad_alloc` when there is no memory.
    static LogClient* Instance();

    /// The mask of the enabled level bits.
    unsigned Level() const;

    /// The name under which this process logs.
    const std::string& ProcessName() const;

private:
    LogClient();
    ~LogClient();
    LogClient(const LogClient&) = delete;
    LogClient& operator=(const LogClient&) = delete;

    struct Settings;
    std::unique_ptr<Settings> settings;
};

/// One line of the log while it is being written. A line belongs to one thread.
class LINXIPC_API LogMsg {
public:
    /// Begins the line at `level`, one bit of the level mask, on behalf of `process`, and returns the stream for its
    /// text, which is valid as long as this object. Throws `std::bad_alloc` when there is no memory for the line;
    /// then no line has begun.
    std::ostream& Log(unsigned level, const std::string& process);

protected:
    LogMsg();
    ~LogMsg();
    LogMsg(const LogMsg&) = delete;
    LogMsg& operator=(const LogMsg&) = delete;

    struct Line;
    std::unique_ptr<Line> line;  ///< the line that has begun, or null
};

/// A line of the system's log, one object for each line. The line is written when the object is destroyed, or dropped
/// when there is no memory for that. `errno` is left alone.
class LINXIPC_API SysLogMsg : public LogMsg {
public:
    SysLogMsg();
    ~SysLogMsg();
};

#endif
