// The thermometer answers whoever asks for the temperature. Here it is always 21.5 degrees, unless it is corrected.
#include "thermometer.h"

#include <cerrno>
#include <iostream>

#include "ipc/linxIpc.h"
#include "payload.h"

static void answer(LinxIpc* server, void* userData) {
    IpcMessage reply;
    pack(reply, temperature, *static_cast<Temperature*>(userData));
    server->Notify(server->rxMessage.GetSender(), reply, true);
}

static void correctBy(LinxIpc* server, void* userData) {
    Temperature correction;
    if (!unpack(server->rxMessage, correction)) return;
    static_cast<Temperature*>(userData)->milliCelsius += correction.milliCelsius;
}

int main() {
    Temperature now{21500};
    LinxIpc server("Thermometer");
    server.RegisterHandler(askTemperature, answer, &now);
    server.RegisterHandler(correct, correctBy, &now);
    if (server.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0) result = server.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
