// Shows the temperature as soon as there is a thermometer, and again whenever there is a new one.
#include <cerrno>
#include <iostream>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "thermometer.h"

constexpr unsigned serverIsThere = 2100, serverHasEnded = 2101;

/// Has the endpoint `name` send a signal of this number as soon as there is one of that name.
static int seek(LinxIpc* client, const char* name, unsigned number) {
    LinxSignal* answer = linx_alloc(client->Linx(), sizeof(LinxSignal), number);
    return answer != nullptr && linx_hunt(client->Linx(), name, &answer) == 0 ? 0 : errno;
}

static void ask(LinxIpc* client, void*) {
    IpcMessage question;
    question.Allocate(askTemperature, 0, nullptr);
    client->Attach("Thermometer", serverHasEnded);
    client->Notify("Thermometer", question, true);
}

static void show(LinxIpc* client, void*) {
    Temperature now;
    if (unpack(client->rxMessage, now)) std::cout << now.milliCelsius / 1000.0 << " degrees" << std::endl;
}

static void seekAgain(LinxIpc* client, void*) {
    std::cout << "the thermometer is gone" << std::endl;
    seek(client, "Thermometer", serverIsThere);
}

int main() {
    LinxIpc client("Early");
    client.RegisterHandler(serverIsThere, ask, nullptr);
    client.RegisterHandler(serverHasEnded, seekAgain, nullptr);
    client.RegisterHandler(temperature, show, nullptr);
    if (client.Init() != 0 || seek(&client, "Thermometer", serverIsThere) != 0) return 1;
    std::cout << "waiting for a thermometer" << std::endl;
    int result = 0;
    while (result == 0) result = client.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
