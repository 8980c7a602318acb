// The thermometer once more. What differs between the programs that include this is how they wait.
#ifndef GUIDE_LOOP_H
#define GUIDE_LOOP_H

#include <cerrno>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "thermometer.h"

inline void answer(LinxIpc* server, void*) {
    IpcMessage reply;
    pack(reply, temperature, Temperature{21500});
    server->Notify(server->rxMessage.GetSender(), reply, true);
}

/// Handles one message if there is one, without waiting. Returns 0 as long as the server is to go on.
inline int handleOne(LinxIpc& server) {
    const int result = server.Receive(0, 0, LinxIpc::emptyString, nullptr);
    return result == ETIMEDOUT ? 0 : result;
}

#endif
