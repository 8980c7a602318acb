// stop NAME: asks the endpoint to end, and waits until it has.
#include <cstring>
#include <iostream>

#include "ipc/ReservedSignal.h"
#include "ipc/linxIpc.h"

constexpr unsigned hasEnded = 2100;

int main(int count, char** arguments) {
    if (count != 2) return 2;
    LinxIpc client("stop");
    IpcMessage request, notice;
    request.Allocate(e_ShutdownSignal, 0, nullptr);
    if (client.Init() != 0 || client.Attach(arguments[1], hasEnded) != 0 ||
        client.Notify(arguments[1], request, true) != 0)
        return 1;
    const int result = client.Receive(60000, hasEnded, LinxIpc::emptyString, &notice);
    if (result != 0) std::cerr << arguments[1] << " goes on: " << std::strerror(result) << std::endl;
    return result == 0 ? 0 : 1;
}
