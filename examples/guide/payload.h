// Messages whose payload is one struct.
#ifndef GUIDE_PAYLOAD_H
#define GUIDE_PAYLOAD_H

#include <cstring>

#include "ipc/linxIpc.h"

template <class Payload>
int pack(IpcMessage& message, unsigned type, Payload payload) {
    return message.Allocate(type, sizeof payload, reinterpret_cast<char*>(&payload));
}

/// False when the message has another size: any endpoint of the domain may have sent it.
template <class Payload>
bool unpack(IpcMessage& message, Payload& payload) {
    if (message.Length() != sizeof payload) return false;
    std::memcpy(&payload, message.DataPtr(), sizeof payload);
    return true;
}

#endif
