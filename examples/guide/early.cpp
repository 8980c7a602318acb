// early [NAME]: shows the temperature as soon as there is a thermometer, "Thermometer" or of that name, and again whenever
// there is a new one.
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

static void ask(LinxIpc* client, void* name) {
    IpcMessage question;
    question.Allocate(askTemperature, 0, nullptr);
    client->Attach(static_cast<const char*>(name), serverHasEnded);
    client->Notify(static_cast<const char*>(name), question, true);
}

static void show(LinxIpc* client, void*) {
    Temperature now;
    if (unpack(client->rxMessage, now)) std::cout << now.milliCelsius / 1000.0 << " degrees" << std::endl;
}

static void seekAgain(LinxIpc* client, void* name) {
    std::cout << "the thermometer is gone" << std::endl;
    seek(client, static_cast<const char*>(name), serverIsThere);
}

int main(int count, char** arguments) {
    char usual[] = "Thermometer";
    char* const name = count > 1 ? arguments[1] : usual;
    LinxIpc client("Early");
    client.RegisterHandler(serverIsThere, ask, name);
    client.RegisterHandler(serverHasEnded, seekAgain, name);
    client.RegisterHandler(temperature, show, nullptr);
    if (client.Init() != 0 || seek(&client, name, serverIsThere) != 0) return 1;
    std::cout << "waiting for a thermometer" << std::endl;
    int result = 0;
    while (result == 0) result = client.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
