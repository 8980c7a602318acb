// Tells which servers of the directory are there, and which have ended.
#include <cerrno>
#include <iostream>

#include "ipc/linxIpc.h"
#include "servers.h"

constexpr unsigned isThere = 2500, hasEnded = 2600;  // and the number of the server

static unsigned numbered(unsigned base, Server server) {
    return base + static_cast<unsigned>(server);
}

static Server serverIn(const LinxIpc& endpoint, unsigned base) {
    return static_cast<Server>(endpoint.rxMessage.MsgType() - base);
}

static int seek(LinxIpc* endpoint, Server server) {
    LinxSignal* answer = linx_alloc(endpoint->Linx(), sizeof(LinxSignal), numbered(isThere, server));
    return answer != nullptr && linx_hunt(endpoint->Linx(), nameOf(server).c_str(), &answer) == 0 ? 0 : errno;
}

static void onThere(LinxIpc* endpoint, void*) {
    const Server server = serverIn(*endpoint, isThere);
    endpoint->Attach(nameOf(server).c_str(), numbered(hasEnded, server));
    std::cout << nameOf(server) << " is there" << std::endl;
}

static void onEnd(LinxIpc* endpoint, void*) {
    const Server server = serverIn(*endpoint, hasEnded);
    std::cout << nameOf(server) << " has ended" << std::endl;
    seek(endpoint, server);
}

int main() {
    LinxIpc endpoint("RollCall");
    if (endpoint.Init() != 0) return 1;
    for (const Server server : allServers) {
        endpoint.RegisterHandler(numbered(isThere, server), onThere, nullptr);
        endpoint.RegisterHandler(numbered(hasEnded, server), onEnd, nullptr);
        if (seek(&endpoint, server) != 0) return 1;
    }
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0) result = endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
