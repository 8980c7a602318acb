#ifndef LINXIPC_DEMO_SERVERS_PAYLOAD_H
#define LINXIPC_DEMO_SERVERS_PAYLOAD_H

#include <cstring>
#include <type_traits>

#include "ipc/linxIpc.h"

namespace demo {

/// Makes `message` one of the type `number` that carries `body`. 0 on success.
template <class Body>
int pack(IpcMessage& message, unsigned number, const Body& body) {
    static_assert(std::is_trivially_copyable_v<Body>, "a body travels as its bytes");
    const int result = message.Allocate(number, sizeof body, nullptr);
    return result != 0 ? result : message.Fill(reinterpret_cast<const char*>(&body), sizeof body);
}

/// The body that begins the payload; zeroes when the payload is too short for it.
template <class Body>
Body unpack(IpcMessage& message) {
    static_assert(std::is_trivially_copyable_v<Body>, "a body travels as its bytes");
    Body body{};
    if (message.Length() >= sizeof body) std::memcpy(&body, message.DataPtr(), sizeof body);
    return body;
}

}  // namespace demo

#endif
