#ifndef LINXIPC_HOST_SYSTEM_LOG_H
#define LINXIPC_HOST_SYSTEM_LOG_H

#include <cerrno>
#include <new>
#include <string>

#include "platform/LogClient.h"

namespace linx {

/// The bits of the log mask that the platform itself uses.
enum class LogBit : unsigned { error = 2, notable = 16 };

/// Logs the line that `text()` makes, if the bit is set in the mask. Leaves errno alone; without memory there is no
/// line.
template <class Text>
void log(LogBit bit, Text text) {
    const int keptErrno = errno;
    try {
        LogClient* client = LogClient::Instance();
        if ((client->Level() & static_cast<unsigned>(bit)) != 0) {
            SysLogMsg message;
            message.Log(static_cast<unsigned>(bit), client->ProcessName()) << "linxhost: " << text();
        }
    } catch (const std::bad_alloc&) {
    }
    errno = keptErrno;
}

}  // namespace linx

#endif
