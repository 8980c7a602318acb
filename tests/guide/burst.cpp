// Asks the thermometer many times before it takes the first answer.
#include "examples/guide/thermometer.h"
#include "ipc/linxIpc.h"

int main() {
    constexpr unsigned count = 300;
    LinxIpc client("Burst");
    if (client.Init() != 0) return 1;
    IpcMessage question;
    question.Allocate(askTemperature, 0, nullptr);
    for (unsigned asked = 0; asked < count; ++asked)
        if (client.Notify("Thermometer", question, true) != 0) return 1;
    for (unsigned answered = 0; answered < count; ++answered)
        if (client.Receive(60000, temperature, LinxIpc::emptyString, nullptr) != 0) return 1;
    return 0;
}
